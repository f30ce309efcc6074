#pragma once

/// Marks a class or function of the public interface: visible outside libkestrel.so, which is built
/// with hidden visibility. Put it on every class that a host or an extension derives from, names in
/// a `dynamic_cast` or calls.
#define KESTREL_API __attribute__((visibility("default")))

/// Marks a member of a public class that only the library uses.
#define KESTREL_HIDDEN __attribute__((visibility("hidden")))
