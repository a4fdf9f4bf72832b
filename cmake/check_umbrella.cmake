# SPDX-License-Identifier: Apache-2.0
# Fails when a public header of dcm/, mth/ or ipg/ is missing from ipg/ipg.h
# (an internal/ folder holds private helpers, neither included nor installed).
file(READ ${ROOT}/ipg/ipg.h umbrella)
file(GLOB_RECURSE headers RELATIVE ${ROOT} ${ROOT}/dcm/*.h ${ROOT}/mth/*.h ${ROOT}/ipg/*.h)
set(missing "")
foreach(h ${headers})
  if(h STREQUAL "ipg/ipg.h" OR h MATCHES "^(dcm|mth|ipg)/internal/")
    continue()
  endif()
  string(FIND "${umbrella}" "#include \"${h}\"" at)
  if(at EQUAL -1)
    list(APPEND missing ${h})
  endif()
endforeach()
if(missing)
  message(FATAL_ERROR "ipg/ipg.h does not include: ${missing}")
endif()
