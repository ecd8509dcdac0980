#pragma once

#include <type_traits>

class CKoString;
class CKoRCMemoryBuffer;
class CKoBuffer;

/// Whether an object of type T may change its address by a plain copy of its bytes, the old place being given
/// up without destruction. True for what is trivially copyable. Specialise it for a class that holds no
/// pointer into itself and is not known by its address elsewhere; TKoSmallVector then grows without touching
/// elements:
///
///     template <> struct TKoIsRelocatable<CMyHandle> : std::true_type {};
template <class T>
struct TKoIsRelocatable : std::is_trivially_copyable<T>
{
};

template <>
struct TKoIsRelocatable<CKoString> : std::true_type
{
};

template <>
struct TKoIsRelocatable<CKoRCMemoryBuffer> : std::true_type
{
};

template <>
struct TKoIsRelocatable<CKoBuffer> : std::true_type
{
};
