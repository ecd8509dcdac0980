// Appended to all public headers and the instantiations: from C++20 on, containers are ranges by concept.
#include <ranges>

template <class Container>
constexpr bool IS_CONTIGUOUS =
    std::ranges::contiguous_range<Container>&& std::ranges::contiguous_range<const Container>;
template <class Container>
constexpr bool IS_BIDIRECTIONAL =
    std::ranges::bidirectional_range<Container>&& std::ranges::bidirectional_range<const Container>;
template <class Container>
constexpr bool IS_FORWARD =
    std::ranges::forward_range<Container>&& std::ranges::forward_range<const Container>;

static_assert(IS_CONTIGUOUS<TKoVector<CKoString>> && IS_CONTIGUOUS<TKoMap<CKoString, int>>);
static_assert(IS_CONTIGUOUS<TKoSmallVector<CKoString>> && IS_CONTIGUOUS<TKoPtrVector<CKoString>>);
static_assert(IS_CONTIGUOUS<TKoConstRefCountedVector<CKoString>>);
static_assert(IS_BIDIRECTIONAL<CKoString> && IS_BIDIRECTIONAL<TKoQueue<CKoString>>);
static_assert(IS_BIDIRECTIONAL<TKoList<CKoString>> && IS_BIDIRECTIONAL<Ring>);
static_assert(IS_FORWARD<TKoHashArray<CKoString, int>> && IS_FORWARD<TKoHashMap<CKoString>>);
static_assert(IS_FORWARD<Chain>);
