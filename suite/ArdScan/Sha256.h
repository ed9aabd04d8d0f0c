// SHA-256 of the host's crypto library: libcrypto on Linux, bcrypt.dll on Windows.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace vlt::scan
{

// One calculation at a time; an object may be used again after Finish. Not for several threads.
class CSha256
{
public:
    CSha256();
    ~CSha256();
    CSha256(const CSha256&) = delete;
    CSha256& operator=(const CSha256&) = delete;

    void Begin();
    void Add(std::span<const std::uint8_t> bytes);
    // Nothing when the host's library failed at any point.
    std::optional<std::array<std::uint8_t, 32>> Finish();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace vlt::scan
