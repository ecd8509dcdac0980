#pragma once

#include "pf/stream/IKoIStream.h"
#include "pf/stream/IKoOStream.h"

#include <type_traits>

/// Reading and writing values of the built-in types: the value's own bytes, least significant byte first, in
/// one call. Each operator gives its stream, so that calls chain. A value of which no byte came is left
/// alone.
///
/// The operators accept exactly their type: an enumeration or a pointer has to be converted first. `long`,
/// `unsigned long` and `wchar_t` have the size that the processor gives them; data for other processors is
/// written with the other types.

KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, char& value);
KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const int& value);
KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const unsigned int& value);
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, unsigned int& value);
KO_EXPORT IKoOStream& operator<<(IKoOStream& stream, const unsigned long long& value);
KO_EXPORT const IKoIStream& operator>>(const IKoIStream& stream, unsigned long long& value);

namespace KoPrivate
{

/// Whether the bytes of a value in memory are those of the value in a stream.
constexpr bool IS_LITTLE_ENDIAN = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

/// Writes, or reads, the `size` bytes of the value at `value`, least significant first, in one call.
/// \return the stream's count.
KO_EXPORT unsigned int writeValue(IKoOStream& stream, const void* value, unsigned int size);
KO_EXPORT unsigned int readValue(const IKoIStream& stream, void* value, unsigned int size);

template <class T, class... Others>
constexpr bool IS_ONE_OF = (std::is_same_v<T, Others> || ...);

/// The built-in types whose operators are the templates below.
template <class T>
constexpr bool IS_STREAMED = std::is_integral_v<T> || IS_ONE_OF<T, float, double>;

template <class T>
constexpr bool IS_WRITTEN_BY_TEMPLATE =
    IS_STREAMED<T> && !IS_ONE_OF<T, int, unsigned int, unsigned long long>;

template <class T>
constexpr bool IS_READ_BY_TEMPLATE = IS_STREAMED<T> && !IS_ONE_OF<T, char, unsigned int, unsigned long long>;

/// What would reach a number's operator only through a conversion.
template <class T>
constexpr bool IS_DISGUISED_NUMBER = std::is_enum_v<T> ||
                                     (std::is_class_v<T> &&
                                      std::is_convertible_v<const T&, unsigned long long>);

} // namespace KoPrivate

template <class T>
std::enable_if_t<KoPrivate::IS_WRITTEN_BY_TEMPLATE<T>, IKoOStream&> operator<<(IKoOStream& stream,
                                                                               const T& value)
{
    KoPrivate::writeValue(stream, &value, sizeof(T));
    return stream;
}

template <class T>
std::enable_if_t<KoPrivate::IS_DISGUISED_NUMBER<T>, IKoOStream&> operator<<(IKoOStream& stream,
                                                                            const T& value) = delete;

template <class T>
std::enable_if_t<KoPrivate::IS_READ_BY_TEMPLATE<T>, const IKoIStream&> operator>>(const IKoIStream& stream,
                                                                                  T& value)
{
    if constexpr (std::is_same_v<T, bool>)
    {
        // Any byte may come, a bool may hold only two.
        unsigned char byte = value ? 1 : 0;
        KoPrivate::readValue(stream, &byte, sizeof(byte));
        value = byte != 0;
    }
    else
    {
        KoPrivate::readValue(stream, &value, sizeof(T));
    }
    return stream;
}
