#pragma once

/// The three public macros of the library.
///
/// `KO_EXPORT` marks what a client may link against; everything else stays hidden inside the shared
/// library. `KO_PRINTF` lets the compiler check the arguments of a printf-style function.
/// `KO_INIT_ORDER` gives a static object its place in the load order (see pf/oswrapper/KoLoadOrder.h).

#define KO_EXPORT __attribute__((visibility("default")))

/// \param formatIndex index of the format parameter, counting from 1 and counting `this`.
/// \param firstArgument index of the first variable argument, 0 for a function that takes a va_list.
#define KO_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))

#define KO_INIT_ORDER(priority) __attribute__((init_priority(priority)))
