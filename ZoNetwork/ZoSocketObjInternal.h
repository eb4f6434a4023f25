// Hooks of the socket object and the selector that the tests use to reach
// paths a healthy system never takes. Not installed, not exported: tests reach
// them through ZoNetwork_static.
#ifndef ZONETWORK_ZOSOCKETOBJINTERNAL_H
#define ZONETWORK_ZOSOCKETOBJINTERNAL_H

namespace zonet_internal {

// Makes every CZoSocketSelector::Select of the process skip the wait and act
// as if it had failed with error while the system's last error read
// lastError. error 0 turns this off.
void SetSelectorWaitFailure(int error, int lastError);

}  // namespace zonet_internal

#endif  // ZONETWORK_ZOSOCKETOBJINTERNAL_H
