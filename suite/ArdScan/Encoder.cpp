#include "suite/ArdScan/Encoder.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <random>

namespace vlt::scan
{
namespace
{

constexpr std::size_t BlockSize = 256u << 10;
using Take = std::function<bool(std::uint64_t offset, std::span<std::uint8_t> block)>;

std::uint64_t RandomNumber()
{
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

bool ReadFully(CHostFile& file, std::uint64_t offset, std::span<std::uint8_t> buffer)
{
    while (!buffer.empty()) {
        const std::ptrdiff_t count = file.ReadAt(offset, buffer);
        if (count <= 0)
            return false;
        offset += static_cast<std::uint64_t>(count);
        buffer = buffer.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

// Every byte from offset on, in order.
bool ReadToEnd(CHostFile& file, std::uint64_t offset, const Take& take)
{
    std::vector<std::uint8_t> block(BlockSize);
    while (offset < file.Size()) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(BlockSize, file.Size() - offset));
        const std::span<std::uint8_t> bytes(block.data(), size);
        if (!ReadFully(file, offset, bytes) || !take(offset, bytes))
            return false;
        offset += size;
    }
    return true;
}

AsError Finish(CNewFile& target, IfThere ifThere)
{
    return target.Commit(ifThere == IfThere::Replace) == CNewFile::Result::Done ? AS_OK : AS_E_FILE;
}

} // namespace

std::string UniqueDigits()
{
    static std::atomic<std::uint64_t> next{RandomNumber()};
    constexpr char Digits[] = "0123456789abcdef";
    std::string text;
    // An odd factor keeps different numbers different and makes neighbours look unlike each other.
    for (std::uint64_t number = next.fetch_add(1) * 0x9E3779B97F4A7C15u; text.size() < 16; number >>= 4)
        text += Digits[number & 15];
    return text;
}

AsError EncodeFile(CHostFile& source, const WString& originalPath, const HostPath& destination, IfThere ifThere)
{
    const auto facts = source.Facts();
    if (!facts)
        return AS_E_FILE;
    EncodedHeader header;
    header.path = originalPath;
    header.facts = *facts;
    header.size = source.Size();
    header.seed = RandomNumber();
    header.time = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count());
    const auto place = WriteEncodedHeader(header);
    CNewFile target;
    // A header without its hash is not valid: it is written in front when the rest is there.
    if (!place || !target.Create(destination) || !target.Append(std::vector<std::uint8_t>(place->size())))
        return AS_E_FILE;
    CSha256 hash;
    hash.Begin();
    const bool copied = ReadToEnd(source, 0, [&](std::uint64_t offset, std::span<std::uint8_t> block) {
        hash.Add(block);
        ApplyKeystream(header.seed, place->size() + offset, block);
        return target.Append(block);
    });
    const auto result = hash.Finish();
    if (!copied || !result || !source.IsUnchanged())
        return AS_E_FILE;
    header.hash = *result;
    const auto bytes = WriteEncodedHeader(header);
    if (!bytes || !target.WriteAt(0, *bytes))
        return AS_E_FILE;
    return Finish(target, ifThere);
}

std::optional<EncodedHeader> ReadEncodedFile(CHostFile& file)
{
    std::vector<std::uint8_t> bytes(EncodedFixedSize);
    if (!ReadFully(file, 0, bytes))
        return std::nullopt;
    const std::size_t size = EncodedHeaderSize(bytes);
    if (size == 0 || size > file.Size())
        return std::nullopt;
    bytes.resize(size);
    if (!ReadFully(file, EncodedFixedSize, std::span(bytes).subspan(EncodedFixedSize)))
        return std::nullopt;
    auto header = ReadEncodedHeader(bytes);
    if (!header || file.Size() - size != header->size)
        return std::nullopt;
    return header;
}

AsError RestoreFile(CHostFile& file, const HostPath& destination)
{
    const auto header = ReadEncodedFile(file);
    if (!header)
        return AS_E_FORMAT;
    CNewFile target;
    if (!target.Create(destination))
        return AS_E_FILE;
    CSha256 hash;
    hash.Begin();
    const bool copied =
        ReadToEnd(file, file.Size() - header->size, [&](std::uint64_t offset, std::span<std::uint8_t> block) {
            ApplyKeystream(header->seed, offset, block);
            hash.Add(block);
            return target.Append(block);
        });
    if (!copied)
        return AS_E_FILE;
    if (hash.Finish() != header->hash)
        return AS_E_FORMAT;
    return target.Give(header->facts, file.IsTrusted()) ? Finish(target, IfThere::Replace) : AS_E_FILE;
}

AsError CopyFileTo(CHostFile& source, const HostPath& destination, IfThere ifThere)
{
    const auto facts = source.Facts();
    CNewFile target;
    if (!facts || !target.Create(destination))
        return AS_E_FILE;
    const bool copied =
        ReadToEnd(source, 0, [&](std::uint64_t, std::span<std::uint8_t> block) { return target.Append(block); });
    if (!copied || !source.IsUnchanged() || !target.Give(*facts, true))
        return AS_E_FILE;
    return Finish(target, ifThere);
}

} // namespace vlt::scan
