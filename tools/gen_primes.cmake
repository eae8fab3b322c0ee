# Regenerates support/primes.cpp: build/gen_primes > support/primes.cpp
add_executable(gen_primes ${CMAKE_CURRENT_LIST_DIR}/gen_primes.cpp)
