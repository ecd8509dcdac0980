#pragma once

#include "pf/base/KoExport.h"

/// User events for the kernel's event tracer. A kernel that does not trace is no failure: the event is just
/// not recorded. Any thread may call; nothing blocks.
namespace KoKernelTrace
{

/// Whether events are handed to the kernel.
KO_EXPORT extern const bool USE_KERNEL_EVENTS;

/// Inserts an event that carries two integers. \return false, with the reason in `errno`, when the kernel
/// refused it.
KO_EXPORT bool addSimpleUserEvent(int event, int first, int second);

/// Inserts an event that carries `size` bytes. \return false also for null data or size 0.
KO_EXPORT bool addComplexUserEvent(int event, void* data, unsigned int size);

/// Inserts an event that carries a text. \return false also for a null text.
KO_EXPORT bool addStringUserEvent(int event, const char* text);

} // namespace KoKernelTrace
