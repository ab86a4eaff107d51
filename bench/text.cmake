# iCalendar escaping against libical, URL encoding against libcurl, XML
# escaping against libxml2.
pkg_check_modules(LIBICAL QUIET IMPORTED_TARGET libical)
pkg_check_modules(LIBCURL QUIET IMPORTED_TARGET libcurl)
pkg_check_modules(LIBXML2 QUIET IMPORTED_TARGET libxml-2.0)
if(LIBICAL_FOUND AND LIBCURL_FOUND AND LIBXML2_FOUND)
  orv_add_bench(text_bench text_bench.cpp LIBS PkgConfig::LIBICAL PkgConfig::LIBCURL PkgConfig::LIBXML2)
else()
  message(STATUS "libical, libcurl or libxml2 missing: text_bench skipped")
endif()
