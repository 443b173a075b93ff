// Exists to have the test headers compiled with it: see kalix_test in cmake/house.cmake.
