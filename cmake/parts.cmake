# Which parts are built. The server, its device library and libkalix always are, and need a compiler and libhwy alone;
# the rest brings libraries that a machine without screen or people has no use for.
include(CMakeDependentOption)

option(KALIX_BUILD_TOOLS "kalixctl, kalix-run and kalix-demo" ON)
cmake_dependent_option(KALIX_BUILD_VIEWER "kalix-view, with SDL and libvncserver" ON KALIX_BUILD_TOOLS OFF)
cmake_dependent_option(KALIX_BUILD_BENCH "kalix-bench, and the device's own measurements" ON KALIX_BUILD_TOOLS OFF)

if(BUILD_TESTING AND NOT (KALIX_BUILD_VIEWER AND KALIX_BUILD_BENCH))
  message(FATAL_ERROR "The tests start every program: give -DBUILD_TESTING=OFF with KALIX_BUILD_...=OFF.")
endif()
