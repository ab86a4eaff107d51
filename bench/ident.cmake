# MD5 against OpenSSL's EVP MD5; GUIDs against libuuid.
find_package(OpenSSL QUIET)
pkg_check_modules(UUID QUIET IMPORTED_TARGET uuid)
if(OpenSSL_FOUND AND UUID_FOUND)
  orv_add_bench(ident_bench ident_bench.cpp LIBS OpenSSL::Crypto PkgConfig::UUID)
else()
  message(STATUS "OpenSSL or libuuid missing: ident_bench skipped")
endif()
