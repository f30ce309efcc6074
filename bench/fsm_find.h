#pragma once

/// Measures the search for words in texts of 1 MiB next to other libraries and an automaton written
/// by hand. False if those that give all ends, or all leftmost longest matches, do not agree.
bool measureSearches();
