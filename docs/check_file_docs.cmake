# Doxygen documents the free functions, macros and types of a header only when
# the header itself is documented, and it does not warn about a header that
# is not. So every public header must open its comment with @file; this check
# runs before Doxygen and names the headers that do not.
#   cmake -DHEADER_DIRS="dir;dir" -P check_file_docs.cmake
set(missing "")
foreach(dir IN LISTS HEADER_DIRS)
  file(GLOB_RECURSE headers "${dir}/*.h")
  foreach(header IN LISTS headers)
    file(STRINGS "${header}" tags REGEX "[@\\\\]file")
    if(NOT tags)
      list(APPEND missing "${header}")
    endif()
  endforeach()
endforeach()
if(missing)
  list(JOIN missing "\n  " text)
  message(FATAL_ERROR "public headers without a @file comment (their free functions would go unchecked):\n  ${text}")
endif()
