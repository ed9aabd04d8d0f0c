#include "suite/ArdScan/Sha256.h"

#include <openssl/evp.h>

namespace vlt::scan
{

struct CSha256::Impl {
    EVP_MD* algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr); // once: the search costs more than a small file
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    bool ok = false;

    ~Impl()
    {
        EVP_MD_CTX_free(context);
        EVP_MD_free(algorithm);
    }
};

CSha256::CSha256() : m_impl(std::make_unique<Impl>()) {}
CSha256::~CSha256() = default;

void CSha256::Begin()
{
    m_impl->ok =
        m_impl->context && m_impl->algorithm && EVP_DigestInit_ex2(m_impl->context, m_impl->algorithm, nullptr) == 1;
}

void CSha256::Add(std::span<const std::uint8_t> bytes)
{
    m_impl->ok = m_impl->ok && EVP_DigestUpdate(m_impl->context, bytes.data(), bytes.size()) == 1;
}

std::optional<std::array<std::uint8_t, 32>> CSha256::Finish()
{
    std::array<std::uint8_t, 32> hash{};
    if (!m_impl->ok || EVP_DigestFinal_ex(m_impl->context, hash.data(), nullptr) != 1)
        return std::nullopt;
    return hash;
}

} // namespace vlt::scan
