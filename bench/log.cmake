# The logging facility against spdlog's file sinks (the anchor), when present.
find_package(spdlog QUIET)
if(spdlog_FOUND)
  orv_add_bench(log_bench log_bench.cpp LIBS spdlog::spdlog Threads::Threads)
else()
  message(STATUS "spdlog not found: log_bench skipped")
endif()
