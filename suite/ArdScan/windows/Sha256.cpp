#include "suite/ArdScan/Sha256.h"

#include "platform/win32.h"

#include <bcrypt.h>

namespace vlt::scan
{

struct CSha256::Impl {
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    bool ok = false;

    Impl()
    {
        if (BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0) != 0)
            algorithm = nullptr;
    }
    ~Impl()
    {
        EndHash();
        if (algorithm)
            BCryptCloseAlgorithmProvider(algorithm, 0);
    }
    void EndHash()
    {
        if (hash)
            BCryptDestroyHash(hash);
        hash = nullptr;
    }
};

CSha256::CSha256() : m_impl(std::make_unique<Impl>()) {}
CSha256::~CSha256() = default;

void CSha256::Begin()
{
    m_impl->EndHash();
    m_impl->ok =
        m_impl->algorithm && BCryptCreateHash(m_impl->algorithm, &m_impl->hash, nullptr, 0, nullptr, 0, 0) == 0;
}

void CSha256::Add(std::span<const std::uint8_t> bytes)
{
    m_impl->ok = m_impl->ok && BCryptHashData(m_impl->hash, const_cast<PUCHAR>(bytes.data()),
                                              static_cast<ULONG>(bytes.size()), 0) == 0;
}

std::optional<std::array<std::uint8_t, 32>> CSha256::Finish()
{
    std::array<std::uint8_t, 32> result{};
    if (!m_impl->ok || BCryptFinishHash(m_impl->hash, result.data(), static_cast<ULONG>(result.size()), 0) != 0)
        return std::nullopt;
    return result;
}

} // namespace vlt::scan
