# find_package(kalix): the target kalix::kalix, libkalix with its headers.
include("${CMAKE_CURRENT_LIST_DIR}/kalix-targets.cmake")
