# The HTTP client against libcurl's easy interface, both fetching from nginx
# started by the program (through the test support library).
find_package(CURL QUIET)
if(CURL_FOUND AND TARGET orvtestsupport)
  orv_add_bench(http_bench http_bench.cpp LIBS CURL::libcurl orvtestsupport)
else()
  message(STATUS "libcurl or the test support library missing: http_bench skipped")
endif()
