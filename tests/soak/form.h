// tests/soak/form.h: how long the soak is.
//
// KORVO_SOAK_MINUTES chooses the long form, KORVO_SOAK_SEED repeats a run.
#ifndef TESTS_SOAK_FORM_H
#define TESTS_SOAK_FORM_H

#include <cstdint>
#include <random>

int Form_Minutes();         // 0: the short form, which the plain check runs
std::uint64_t Form_Seed();  // printed when it is first asked for

using Random = std::mt19937_64;

// A source of its own for each case or exchange, so that each can be repeated alone.
Random Form_Random(std::uint64_t number);

int Between(Random &random, int low, int high);  // both included
bool OneIn(Random &random, int count);

#endif
