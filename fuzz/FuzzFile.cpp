// The reader over a file, which reads through windows, does what the reader over the same bytes in
// memory does, whatever it is asked for in whatever order.

#include "Choices.h"
#include "FuzzTarget.h"

#include "kxmd/base/KXFileDataPrivate.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

/// Reads text in one of the three ways.
bool readText(KXAbstractData& data, std::uint8_t kind, std::uint16_t length,
    KXStringEncoding encoding, std::optional<std::string>& text)
{
    switch (kind % 3) {
    case 0:
        return data.readStringTo(text, length, encoding);
    case 1:
        return data.readStringToZeroTerminationInto(text, length, encoding);
    default:
        return data.readStringWithZeroTerminationTo(text, length, encoding);
    }
}

void compareText(KXAbstractData& file, KXAbstractData& memory, Choices& choices)
{
    auto const kind = choices.next<std::uint8_t>();
    auto const length = choices.next<std::uint16_t>();
    auto const encoding = kind & 0x80 ? KXStringEncodingUnicode : KXStringEncodingLatin1;
    std::optional<std::string> ofFile, ofMemory;
    KXMD_REQUIRE(readText(file, kind, length, encoding, ofFile)
        == readText(memory, kind, length, encoding, ofMemory));
    KXMD_REQUIRE(ofFile == ofMemory);
}

void compareBytes(KXAbstractData& file, KXAbstractData& memory, Choices& choices)
{
    std::size_t const length = choices.next<std::uint16_t>();
    bool const isWhole = choices.next<std::uint8_t>() % 2;
    std::vector<std::uint8_t> ofFile(length, 1), ofMemory(length, 1);
    auto const read = [&](KXAbstractData& data, std::vector<std::uint8_t>& bytes) {
        return isWhole ? std::uint64_t { data.readBytesTo(bytes.data(), length) }
                       : data.readBytesToMaxLength(bytes.data(), length);
    };
    KXMD_REQUIRE(read(file, ofFile) == read(memory, ofMemory));
    KXMD_REQUIRE(ofFile == ofMemory);
}

void compareNumbers(KXAbstractData& file, KXAbstractData& memory, Choices& choices)
{
    auto const swap = choices.next<std::uint8_t>() % 2 ? KXSwap::yes : KXSwap::no;
    KXMD_REQUIRE(file.readUInt32OrZero(swap) == memory.readUInt32OrZero(swap));
    KXMD_REQUIRE(file.readUInt16OrZero(swap) == memory.readUInt16OrZero(swap));
    KXMD_REQUIRE(file.readUInt8OrZero() == memory.readUInt8OrZero());
}

void move(KXAbstractData& data, std::uint8_t how, std::uint32_t where)
{
    if (how % 2)
        data.setOffset(how == 0xFF ? UINT64_MAX - where : where);
    else
        data.skipBytes(where % 300);
}

void compareOnce(KXAbstractData& file, KXAbstractData& memory, Choices& choices)
{
    switch (choices.next<std::uint8_t>() % 4) {
    case 0:
        compareText(file, memory, choices);
        break;
    case 1:
        compareBytes(file, memory, choices);
        break;
    case 2:
        compareNumbers(file, memory, choices);
        break;
    default: {
        auto const how = choices.next<std::uint8_t>();
        auto const where = choices.next<std::uint32_t>() % 300'000;
        move(file, how, where);
        move(memory, how, where);
    }
    }
    KXMD_REQUIRE(file.offset() == memory.offset());
    KXMD_REQUIRE(file.remainingLength() == memory.remainingLength());
}

}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t length)
{
    silenceLog();
    Choices choices(bytes, length);
    // Longer than all windows together, of bytes that hold texts and terminators.
    std::vector<std::uint8_t> content(choices.next<std::uint32_t>() % 300'000);
    auto const zeros = choices.next<std::uint8_t>();
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = (i * 7 + i / 256) % 256 < zeros ? 0 : static_cast<std::uint8_t>(i * 31 + 1);

    int const descriptor = ::memfd_create("file", MFD_CLOEXEC);
    KXMD_REQUIRE(::write(descriptor, content.data(), content.size())
        == static_cast<ssize_t>(content.size()));
    KXFileData file(descriptor, content.size());
    auto const memory = immutableReader(content.data(), content.size());
    while (choices.areLeft())
        compareOnce(file, *memory, choices);
    KXMD_REQUIRE(!file.readError());
    return 0;
}
