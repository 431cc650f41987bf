# The kinds of targets that the folders define.

add_library(ampora_options INTERFACE)
target_include_directories(ampora_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(ampora_options INTERFACE -Wall -Wextra -Werror)
if(WIN32)
  target_compile_definitions(ampora_options INTERFACE UNICODE _UNICODE _WIN32_WINNT=0x0A00)
endif()
# Hardening: scripts/check-hardening looks for each of these in the built programs.
target_compile_options(ampora_options INTERFACE -fstack-protector-strong)
target_compile_definitions(ampora_options INTERFACE _GLIBCXX_ASSERTIONS)
if(WIN32)
  # No stack-clash protection: on Windows the compiler probes each page of a large stack frame in any case.
  target_link_options(ampora_options INTERFACE -fstack-protector-strong LINKER:--dynamicbase,--high-entropy-va,--nxcompat)
  # The same sources make the same bytes, whatever the time.
  target_link_options(ampora_options INTERFACE LINKER:--no-insert-timestamp)
else()
  target_compile_options(ampora_options INTERFACE -fstack-clash-protection -fcf-protection
                                                 $<$<NOT:$<BOOL:$<TARGET_PROPERTY:POSITION_INDEPENDENT_CODE>>>:-fPIE>)
  target_link_options(ampora_options INTERFACE $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>
                                              LINKER:-z,relro,-z,now,-z,noexecstack)
endif()
if(NOT AMPORA_SANITIZE)
  # The sanitizers do not know the checked functions. Without optimisation there are none.
  target_compile_definitions(ampora_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=3>)
endif()
if(AMPORA_SANITIZE)
  target_compile_options(ampora_options INTERFACE -fsanitize=${AMPORA_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all)
  target_link_options(ampora_options INTERFACE -fsanitize=${AMPORA_SANITIZE})
endif()
if(AMPORA_FUZZ)
  # What the fuzzer steers by; its own main function comes with the fuzzers alone.
  target_compile_options(ampora_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(AMPORA_COVERAGE)
  target_compile_options(ampora_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(ampora_options INTERFACE --coverage)
endif()

# ampora_layer(NAME SOURCES ... [LINK ...]): one layer's library. It uses the platform functions without choosing the
# backend: the program does, by its property AMPORA_PLATFORM.
function(ampora_layer name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC ampora_options ${arg_LINK}
                                       "$<LINK_ONLY:$<TARGET_PROPERTY:AMPORA_PLATFORM>>")
endfunction()

# ampora_compile_small(TARGET...): compiles libraries for size. For those whose speed does not count, since they spend
# their time in the system: all that amporasrv consists of, but what reads reports and converts text. Not for
# Windows, where most of a program is the C++ library.
function(ampora_compile_small)
  foreach(target ${ARGN})
    target_compile_options(${target} PRIVATE "$<$<CONFIG:Release>:-Os;-ffunction-sections>")
    target_link_options(${target} INTERFACE "$<$<CONFIG:Release>:LINKER:--gc-sections>")
  endforeach()
endfunction()

# ampora_program(NAME SOURCES ... [LINK ...]): a program on the native platform.
function(ampora_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  set_target_properties(${name} PROPERTIES AMPORA_PLATFORM ampora_platform_native)
  target_link_libraries(${name} PRIVATE ${arg_LINK} ampora_platform_native ampora_standard_streams)
endfunction()

# ampora_windows_resources(NAME DESCRIPTION text [INTERNAL_NAME text] [MANIFEST file]): what Windows shows of a program or
# library: the project's version, the description, the names. A program also gets a manifest, the one of console programs
# unless another is named. Nothing to do for other systems.
function(ampora_windows_resources name)
  if(NOT WIN32)
    return()
  endif()
  cmake_parse_arguments(arg "" "DESCRIPTION;INTERNAL_NAME;MANIFEST" "" ${ARGN})
  get_target_property(internal_name ${name} OUTPUT_NAME)
  if(NOT internal_name)
    set(internal_name ${name})
  endif()
  get_target_property(type ${name} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set(original_filename "${internal_name}.exe")
    set(file_type VFT_APP)
    if(NOT arg_MANIFEST)
      set(arg_MANIFEST "${PROJECT_SOURCE_DIR}/cmake/Console.manifest")
    endif()
    set(manifest_statement "CREATEPROCESS_MANIFEST_RESOURCE_ID RT_MANIFEST \"${arg_MANIFEST}\"")
  else()
    set(original_filename "${internal_name}.dll")
    set(file_type VFT_DLL)
    set(manifest_statement "")
  endif()
  if(arg_INTERNAL_NAME)
    set(internal_name "${arg_INTERNAL_NAME}")
  endif()
  string(REPLACE "." "," version_numbers "${PROJECT_VERSION}.0")
  set(script "${CMAKE_CURRENT_BINARY_DIR}/${name}.rc")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/VersionInfo.rc.in" "${script}" @ONLY)
  # In a library of its own, since the resource compiler does not know the compilers' options.
  add_library(${name}_resources OBJECT "${script}")
  set_source_files_properties("${script}" PROPERTIES OBJECT_DEPENDS "${arg_MANIFEST}")
  target_link_libraries(${name} PRIVATE ${name}_resources)
endfunction()

# Compiles a test program's own sources quickly: the tests themselves run for moments, but take more than twice as long
# to compile when they are optimised. What they test is built as it ships.
function(ampora_test_options name)
  target_compile_options(${name} PRIVATE -O0 -U_FORTIFY_SOURCE)
endfunction()

# Precompiles, once for all test programs, the test framework's headers and what comes with them.
function(ampora_precompile_test_headers)
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/TestHeaders.cpp" CONTENT "// a library needs a source\n")
  add_library(ampora_test_headers OBJECT "${PROJECT_BINARY_DIR}/TestHeaders.cpp")
  ampora_test_options(ampora_test_headers)
  target_link_libraries(ampora_test_headers PRIVATE ampora_options GTest::gmock)
  target_precompile_headers(ampora_test_headers PRIVATE <gmock/gmock.h>)
endfunction()

# Registers the cases of a test program. On Linux each case is a CTest test and so has a process of its own. wine takes
# longer to start a process than most cases take, so there the program is one CTest test, and its cases run together.
function(ampora_register_cases name timeout left_out)
  if(WIN32)
    add_test(NAME ${name} COMMAND ${name} "--gtest_filter=-${left_out}")
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 FAIL_REGULAR_EXPRESSION "Running 0 tests")
  else()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_PREFIX "${name}." TEST_FILTER "-${left_out}"
      PROPERTIES TIMEOUT ${timeout})
  endif()
endfunction()

# ampora_test(NAME SOURCES ... LINK ... [PLATFORM target] [LEFT_OUT filter]): a test program. It runs on the simulated machine unless PLATFORM names another backend. LEFT_OUT: the tests that cannot be run here, as a
# GoogleTest filter; empty for none. Without AMPORA_TESTS there is no such program.
function(ampora_test name)
  if(NOT AMPORA_TESTS)
    return()
  endif()
  cmake_parse_arguments(arg "" "PLATFORM;TIMEOUT;LEFT_OUT" "SOURCES;LINK" ${ARGN})
  if(NOT arg_PLATFORM)
    set(arg_PLATFORM ampora_platform_sim)
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  add_executable(${name} ${arg_SOURCES})
  set_target_properties(${name} PROPERTIES AMPORA_PLATFORM ${arg_PLATFORM})
  ampora_test_options(${name})
  target_precompile_headers(${name} REUSE_FROM ampora_test_headers)
  if(arg_PLATFORM STREQUAL ampora_platform_sim)
    target_link_libraries(${name} PRIVATE ampora_testing_sim)
  endif()
  target_link_libraries(${name} PRIVATE ${arg_LINK} ${arg_PLATFORM} GTest::gmock ampora_testing)
  ampora_register_cases(${name} ${arg_TIMEOUT} "${arg_LEFT_OUT}")
endfunction()

# Appends to a variable the sources of every target below a folder, as paths below the project's folder.
function(ampora_append_sources directory variable)
  set(listed ${${variable}})
  get_property(targets DIRECTORY "${directory}" PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(sources ${target} SOURCES)
    foreach(source ${sources})
      cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY "${directory}" NORMALIZE)
      cmake_path(RELATIVE_PATH source BASE_DIRECTORY "${PROJECT_SOURCE_DIR}")
      list(APPEND listed "${source}")
    endforeach()
  endforeach()
  get_property(folders DIRECTORY "${directory}" PROPERTY SUBDIRECTORIES)
  foreach(folder ${folders})
    ampora_append_sources("${folder}" listed)
  endforeach()
  set(${variable} ${listed} PARENT_SCOPE)
endfunction()

# Refuses a *_test.cpp that belongs to no target: a test that nobody builds proves nothing.
function(ampora_check_test_files)
  file(GLOB_RECURSE test_files RELATIVE "${PROJECT_SOURCE_DIR}" CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/*_test.cpp")
  list(FILTER test_files EXCLUDE REGEX "^build/")
  if(WIN32)
    list(FILTER test_files EXCLUDE REGEX "^(platform/linux|testing/fleet|testing/process/linux|testing/system|server/(published|store|retrieval|live)|testing/published)/") # Linux programs
  else()
    list(FILTER test_files EXCLUDE REGEX "^(platform|testing/process)/win32/")
  endif()
  set(listed)
  foreach(folder chart platform config format data fetch engine app ctl server testing)
    ampora_append_sources("${PROJECT_SOURCE_DIR}/${folder}" listed)
  endforeach()
  list(REMOVE_ITEM test_files ${listed})
  if(test_files)
    message(FATAL_ERROR "Test files in no target: ${test_files}")
  endif()
endfunction()
