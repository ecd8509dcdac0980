#pragma once

/// Calls a function when it is constructed: a static object of it, placed by KO_INIT_ORDER, runs the function
/// while the library is loaded. The function must bear being called earlier by a first use. Holds nothing.
///
///     TKoStartupCaller<evaluate> sCaller KO_INIT_ORDER(KoLoadOrder::STARTUP_OPTIONS);
template <void (*Function)()>
class TKoStartupCaller
{
public:
    TKoStartupCaller() { Function(); }

    TKoStartupCaller(const TKoStartupCaller&) = delete;
    TKoStartupCaller& operator=(const TKoStartupCaller&) = delete;
};
