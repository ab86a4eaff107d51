# Configuration files against a bare line splitter, and the default cache's
# look-up against std::unordered_map (both anchors come with the compiler).
orv_add_bench(config_bench config_bench.cpp)
