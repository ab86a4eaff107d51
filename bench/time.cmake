# Date strings and durations against libical and glibc (strptime, timegm,
# strftime).
pkg_check_modules(ICAL QUIET IMPORTED_TARGET libical)
if(ICAL_FOUND)
  orv_add_bench(time_bench time_bench.cpp LIBS PkgConfig::ICAL)
else()
  message(STATUS "libical missing: time_bench skipped")
endif()
