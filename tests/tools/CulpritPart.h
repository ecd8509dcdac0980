#pragma once

/// Appends a record to the backtrace file in the directory. \return 0
__attribute__((visibility("default"))) int leaveBacktrace(const char* directory);
