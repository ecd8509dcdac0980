#pragma once

#include <functional>
#include <vector>

#include "pf/base/CKoString.h"
#include "pf/containers/CKoBuffer.h"
#include "pf/containers/CKoCircularByteBuffer.h"
#include "pf/stream/CKoByteStream.h"
#include "pf/util/CKoDateAndTime.h"
#include "pf/util/CKoPath.h"

namespace KoTest
{

using Bytes = std::vector<unsigned char>;

inline Bytes bytesOf(const CKoByteStream& stream)
{
    return Bytes(stream.getData(), stream.getData() + stream.length());
}

inline CKoByteStream streamOf(const Bytes& bytes)
{
    CKoByteStream stream;
    stream.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
    return stream;
}

/// A form in which a type is written and read, with a value of it and its bytes.
struct StreamedType
{
    const char* name;
    Bytes golden;
    std::function<void(IKoOStream&)> writeValue;    ///< writes the value
    std::function<Bytes(const IKoIStream&)> reread; ///< reads any value and gives the bytes it is written as
};

template <class T, class Write, class Read>
StreamedType streamedType(const char* name, const Bytes& golden, const T& value, Write write, Read read)
{
    const auto reread = [=](const IKoIStream& in)
    {
        T result(value);
        read(in, result);
        CKoByteStream out;
        write(out, result);
        return bytesOf(out);
    };
    return {name, golden, [=](IKoOStream& out) { write(out, value); }, reread};
}

template <class T>
StreamedType streamedType(const char* name, const Bytes& golden, const T& value)
{
    const auto write = [](IKoOStream& out, const T& from) { out << from; };
    return streamedType(name, golden, value, write, [](const IKoIStream& in, T& to) { in >> to; });
}

template <class T>
StreamedType alignedType(const char* name, const Bytes& golden, const T& value)
{
    return streamedType(name, golden, value, &T::toNubStream, &T::fromNubStream);
}

/// Every streamable type. The order decides what the first byte of a fuzz input means: add at the end.
inline std::vector<StreamedType> streamedTypes()
{
    const CKoString text("a\xC3\xA4");
    CKoBuffer buffer;
    buffer.copyTo("\x01\x00\xFF", 3, 0);
    const CKoByteStream part(buffer, 2);
    CKoCircularByteBuffer ring(4);
    ring.write("\x07\x08", 2);
    return {
        streamedType("char", {0x61}, 'a'),
        streamedType("int", {0xFE, 0xFF, 0xFF, 0xFF}, -2),
        streamedType("unsigned int", {4, 3, 2, 1}, 0x01020304U),
        streamedType("unsigned long long", {8, 7, 6, 5, 4, 3, 2, 1}, 0x0102030405060708ULL),
        streamedType("CKoString", {3, 0, 0, 0, 'a', 0xC3, 0xA4}, text),
        alignedType("aligned CKoString", {3, 0, 0, 0, 'a', 0xC3, 0xA4, 0}, text),
        streamedType("CKoRCMemoryBuffer", {3, 0, 0, 0, 1, 0, 0xFF}, CKoRCMemoryBuffer(buffer)),
        streamedType("CKoBuffer", {3, 0, 0, 0, 1, 0, 0xFF}, buffer),
        alignedType("aligned CKoBuffer", {3, 0, 0, 0, 1, 0, 0xFF}, buffer),
        streamedType("CKoByteStream", {2, 0, 0, 0, 1, 0}, part),
        alignedType("aligned CKoByteStream", {3, 0, 0, 0, 1, 0, 0xFF}, part),
        streamedType("CKoDateAndTime", {0x40, 0x42, 0x0F, 0, 0, 0, 0, 0}, CKoDateAndTime(1, true, 0)),
        streamedType("CKoCircularByteBuffer", {2, 0, 0, 0, 7, 8}, ring),
        streamedType("bool", {1}, true),
        streamedType("double", {0, 0, 0, 0, 0, 0, 0xF8, 0x3F}, 1.5),
        streamedType("CKoPath", {4, 0, 0, 0, 'a', '/', '/', 'b'}, CKoPath("a//b")),
    };
}

} // namespace KoTest
