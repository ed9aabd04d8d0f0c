#include "tests/fuzz/Bodies.h"

#include "platform/posix/registry/KeyName.h"
#include "platform/posix/registry/ValueFile.h"

#include <cstring>
#include <vector>

namespace vlt::test
{
namespace
{

using namespace vlt::posix::registry;

void CheckValue(std::span<const std::byte> bytes, std::size_t nameLength)
{
    ValueView view;
    const ValueState state = ParseValue(bytes, nameLength, view);
    Demand(view.end >= RecordOffset(nameLength) + sizeof(ValueRecord), "the end lies behind the record");
    Demand((state == ValueState::Short) == (bytes.size() < view.end), "short is what has bytes missing");
    if (state != ValueState::Good)
        return;
    const std::byte* const begin = view.data.data();
    Demand(begin + view.data.size() == bytes.data() + view.end, "the data lies in the bytes");
    const ValueRecord record = MakeRecord(view.type, view.data);
    ValueRecord stored;
    std::memcpy(&stored, begin - sizeof(stored), sizeof(stored));
    Demand(record.check == stored.check && record.size == stored.size && record.type == stored.type,
           "what is read is what would be written");
}

} // namespace

void RegistryValueBody(std::span<const std::uint8_t> given)
{
    std::vector<std::uint64_t> aligned(given.size() / sizeof(std::uint64_t) + 1);
    std::memcpy(aligned.data(), given.data(), given.size());
    const auto bytes = std::as_bytes(std::span(aligned)).first(given.size());
    for (const std::size_t length : {std::size_t{0}, std::size_t{1}, std::size_t{11}, MaxValueName})
        CheckValue(bytes, length);

    WStringView name;
    if (!ParseName(bytes, name))
        return;
    Demand(name.size() <= MaxValueName && RecordOffset(name.size()) <= bytes.size(), "the name lies in the bytes");
    CheckValue(bytes, name.size());
    FileName file;
    MakeFileName('v', name, file);
    const std::size_t length = std::strlen(file.text);
    Demand(length <= MaxFileName && std::strchr(file.text, '/') == nullptr, "every name is one file name");
    const WString back = NameOfFile(file.text);
    Demand(std::strchr(file.text, '~') != nullptr || name.find(u'\0') != name.npos || SameName(back, name),
           "a file name gives the name back");
}

} // namespace vlt::test
