#pragma once

// The embedded case: a host sets three inputs, executes a rule of three statements and reads an
// output, a given number of times.
constexpr long executionsS = 3'000'000;
