# Libraries that are not ours. Header-only ones are seen through a folder of links, so that the Windows compiler finds
# them without looking into the native compiler's include folder.
set(header_links "${CMAKE_BINARY_DIR}/headers")
file(MAKE_DIRECTORY "${header_links}")
foreach(library CLI boost nlohmann)
  if(NOT EXISTS "/usr/include/${library}")
    message(FATAL_ERROR "The ${library} headers are missing: run scripts/setup.sh")
  endif()
  file(CREATE_LINK "/usr/include/${library}" "${header_links}/${library}" SYMBOLIC)
endforeach()

# HTTP over sockets, header-only: the report server and the tests' server.
add_library(ampora_beast INTERFACE)
target_include_directories(ampora_beast SYSTEM INTERFACE "${header_links}")
target_compile_definitions(ampora_beast INTERFACE BOOST_ALL_NO_LIB BOOST_ERROR_CODE_HEADER_ONLY)
if(AMPORA_SANITIZE MATCHES "thread")
  # The compiler warns that the sanitizer does not see fences. The library's own mutexes order what its fences do.
  target_compile_options(ampora_beast INTERFACE -Wno-tsan)
endif()
find_package(Threads REQUIRED)
target_link_libraries(ampora_beast INTERFACE Threads::Threads)
if(WIN32)
  target_compile_definitions(ampora_beast INTERFACE _WIN32_WINNT=0x0A00)
  target_link_libraries(ampora_beast INTERFACE ws2_32 mswsock)
else()
  find_package(CURL REQUIRED)
  find_package(LibXml2 REQUIRED)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(ICU REQUIRED IMPORTED_TARGET icu-uc)
  pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
  pkg_check_modules(ARCHIVE REQUIRED IMPORTED_TARGET libarchive)
  pkg_check_modules(SQLITE REQUIRED IMPORTED_TARGET sqlite3)
endif()

# JSON, header-only: written by amporactl, read by tests.
add_library(ampora_json INTERFACE)
target_include_directories(ampora_json SYSTEM INTERFACE "${header_links}")

# Command lines, header-only.
add_library(ampora_cli INTERFACE)
target_include_directories(ampora_cli SYSTEM INTERFACE "${header_links}")

# Tests, from the sources that Debian ships for every compiler.
if(AMPORA_TESTS)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
  include(GoogleTest)
endif()
