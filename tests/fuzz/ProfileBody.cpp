#include "tests/fuzz/Bodies.h"

#include "platform/posix/file/ProfileText.h"

#include <string>
#include <string_view>

namespace vlt::test
{
namespace
{

using vlt::posix::ProfileText;

std::string_view Take(std::string_view& bytes)
{
    const std::size_t length = bytes.empty() ? 0 : static_cast<unsigned char>(bytes[0]) % 8;
    bytes.remove_prefix(bytes.empty() ? 0 : 1);
    const std::string_view text = bytes.substr(0, length);
    bytes.remove_prefix(text.size());
    return text;
}

// A name that is found again must have no character that ends it, and something to find.
bool IsPlainName(std::string_view name)
{
    constexpr std::string_view special("\r\n\0 \t=[];\xEF\xFF", 11);
    return !name.empty() && name.find_first_of(special) == std::string_view::npos;
}

} // namespace

void ProfileBody(std::span<const std::uint8_t> input)
{
    std::string_view bytes(reinterpret_cast<const char*>(input.data()), input.size());
    const std::string_view section = Take(bytes);
    const std::string_view key = Take(bytes);
    const std::string_view value = Take(bytes);
    ProfileText text(bytes);

    const std::string once = text.Bytes();
    Demand(ProfileText(once).Bytes() == once, "a file that was written is read as it was written");
    for (const std::string& name : text.Sections())
        text.Keys(name);
    text.Value(section, key);

    const auto other = text.Value("other", "kept");
    text.Set(section, key, value);
    const ProfileText reread(text.Bytes());
    if (IsPlainName(section) && IsPlainName(key)) {
        Demand(reread.Value(section, key).has_value(), "what was set is found");
        Demand(reread.Value(section, key) == text.Value(section, key), "and is found alike in the file");
        Demand(reread.Sections().size() <= ProfileText(once).Sections().size() + 1, "a value makes no section");
        if (section != "other")
            Demand(text.Value("other", "kept") == other, "other entries are kept");
    }
    text.RemoveKey(section, key);
    while (text.RemoveSection(section)) {
    }
    Demand(!text.Value(section, key), "a section that was removed has no entries");
}

} // namespace vlt::test
