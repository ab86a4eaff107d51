# Counters: the hot path against a raw atomic add on the same mapped word
# (the anchor comes with the compiler), and the snapshot of 100 counters.
orv_add_bench(counter_bench counter_bench.cpp)
