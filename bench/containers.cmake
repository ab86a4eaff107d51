# Containers against std::unordered_map, zlib's crc32 and snprintf; the URL
# object against libcurl's URL API.
find_package(ZLIB QUIET)
if(ZLIB_FOUND)
  orv_add_bench(containers_bench containers_bench.cpp LIBS ZLIB::ZLIB)
else()
  message(STATUS "zlib missing: containers_bench skipped")
endif()
find_package(CURL QUIET)
if(CURL_FOUND)
  orv_add_bench(url_bench url_bench.cpp LIBS CURL::libcurl)
else()
  message(STATUS "libcurl missing: url_bench skipped")
endif()
