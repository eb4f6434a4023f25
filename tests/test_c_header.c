/* The public headers meant for C compile as C, and their names link. */
#include <stdio.h>
#include <string.h>

#include "ZoUtils/ZoErrorCodes.h"

int main(void) {
  const char* name = ZONET_ErrorCodeName(ZONET_ERR_INVALID_STATE);
  if (name == NULL || strcmp(name, "ZONET_ERR_INVALID_STATE") != 0) {
    fprintf(stderr, "ZONET_ErrorCodeName gave %s\n", name ? name : "(null)");
    return 1;
  }
  printf("C header: ok\n");
  return 0;
}
