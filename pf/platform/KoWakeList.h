#pragma once

namespace KoPlatform
{

class ChannelBell;

/// Sleepers that are to be woken once the channel's lock has been given back, so that they do not run into
/// it.
///
/// A thread that sleeps on a word may have gone by then, and the word with it: waking nobody, or
/// somebody else's sleeper for nothing, is harmless, because every sleep on a word looks again.
class WakeList
{
public:
    WakeList() noexcept = default;
    ~WakeList() { run(); }
    WakeList(const WakeList&) = delete;
    WakeList& operator=(const WakeList&) = delete;

    void add(unsigned int& word) noexcept;
    /// Keeps the bell until it has been rung.
    void add(ChannelBell& bell) noexcept;

private:
    static constexpr int CAPACITY = 8; // more are woken at once

    void run() noexcept;

    unsigned int* m_words[CAPACITY];
    int m_wordCount = 0;
    ChannelBell* m_bell = nullptr;
};

} // namespace KoPlatform
