#pragma once

#include <atomic>
#include <cstddef>

/// Counts the allocations of a test program and can make them fail. A program that lists
/// Allocations.cpp among its sources gets its operators new and delete.
struct Allocations {
    static std::atomic<long> madeCM;
    static std::atomic<long> heldCM;
    static std::atomic<long> bytesHeldCM;
    /// Allocations of more bytes fail.
    static std::atomic<std::size_t> largestCM;

    /// Starts to watch the number of bytes held, and gives the present number.
    static long startPeak();
    /// The most bytes held since `startPeak`.
    static long peak();

    /// Lets `count` allocations succeed and the next one fail; later ones succeed again.
    static void failAfter(long count);
    /// Lets all allocations succeed. Tells whether one has failed since `failAfter`.
    static bool endFailing();
};
