# What every target of the house is compiled with, and how a test is declared.

add_library(kalix_house INTERFACE)
target_include_directories(kalix_house INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_SOURCE_DIR}/include)
target_compile_definitions(kalix_house INTERFACE KALIX_VERSION="${PROJECT_VERSION}")
# Pictures are the same bytes everywhere: no contraction of a product and a sum.
target_compile_options(kalix_house INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -ffp-contract=off
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Wold-style-cast>
  # A test is alone with what it calls and holds no locks (KALIX_ALONE).
  $<$<AND:$<COMPILE_LANG_AND_ID:CXX,Clang>,$<NOT:$<BOOL:$<TARGET_PROPERTY:KALIX_ALONE>>>>:-Wthread-safety>)
target_link_options(kalix_house INTERFACE -Wl,--no-undefined)

if(KALIX_SANITIZE STREQUAL "address")
  set(sanitizers -fsanitize=address,undefined,float-cast-overflow -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(KALIX_SANITIZE STREQUAL "thread")
  # Readers of the published files end with a fence, which this sanitizer does not follow; their writers are
  # other processes, which it does not see.
  set(sanitizers -fsanitize=thread $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
endif()
if(KALIX_FUZZ)
  list(APPEND sanitizers -fsanitize=fuzzer-no-link)
endif()
if(sanitizers)
  list(APPEND sanitizers -g1) # a report names lines; who wants variables takes the debug preset
  # A sanitizer's own dlopen stands between the program and the loader, which then looks where the caller, the
  # runtime, says. The older kind of search path is the whole program's, whoever asks.
  list(APPEND sanitizer_links -Wl,--disable-new-dtags)
  target_compile_options(kalix_house INTERFACE ${sanitizers})
  target_link_options(kalix_house INTERFACE ${sanitizers} ${sanitizer_links})
endif()

# The test headers are the same in every test and take longer than most of what is in them, so they are
# compiled once. A target that reuses them must be compiled with the same options, so both link the same.
function(kalix_test_headers name)
  target_link_libraries(${name} PRIVATE kalix_house GTest::gmock GTest::gtest)
  # The first lets ccache follow a precompiled header. The second: g++ 12 warns of the insides of std::string when
  # they come from such a header, which it does not take for the system's any more.
  target_compile_options(${name} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess;-Wno-array-bounds;-Wno-stringop-overflow;-Wno-stringop-overread;-Wno-restrict>)
  set_target_properties(${name} PROPERTIES KALIX_ALONE ON)
endfunction()

# kalix_test(NAME SOURCES ... LIBRARIES ... [TIMEOUT seconds] [LABEL quick|system])
function(kalix_test name)
  cmake_parse_arguments(test "" "TIMEOUT;LABEL" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${name} ${test_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${test_LIBRARIES} GTest::gmock_main)
  kalix_test_headers(${name})
  target_precompile_headers(${name} REUSE_FROM kalix_test_headers)
  add_test(NAME ${name} COMMAND ${name})
  if(NOT test_TIMEOUT)
    set(test_TIMEOUT 120)
  endif()
  if(NOT test_LABEL)
    set(test_LABEL quick)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${test_TIMEOUT} LABELS ${test_LABEL})
endfunction()
