#pragma once

#include <string>
#include <vector>

/// What the processes of the station share of their command lines.
///
///     sampler @station.conf --memtrace=1
namespace CommandLine
{

/// The arguments of this process and of its option files, the program's name first: for CLI11. Without the
/// names of option files, and without what the library takes for itself. They live as long as the process.
std::vector<const char*> arguments();

/// Tells on standard error how many bytes of the heap are in use, if the process was started with
/// "--memtrace=1". Called at the very end, when all that the process worked with is gone.
void tellBytesInUse();

} // namespace CommandLine
