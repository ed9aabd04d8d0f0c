// What the objects that may have a name have in common: their creation, opening and rights.
#pragma once

#include "platform/posix/core/HandleTable.h"
#include "platform/posix/core/Object.h"
#include "platform/posix/core/Utf.h"
#include "platform/posix/kernel/NamedBlock.h"

#include <memory>
#include <new>
#include <string>

namespace vlt::posix
{

// Makes the first state of an object in its block.
template <typename State, typename... Arguments>
void MakeState(void* memory, Arguments... arguments) noexcept
{
    static_assert(sizeof(State) <= NamedBlock::StateSize && alignof(State) <= 64);
    new (memory) State(arguments...);
}

class NamedObject : public Object
{
public:
    // False with ERROR_ACCESS_DENIED.
    bool Grants(DWORD access) const noexcept
    {
        if ((m_access & access) == access)
            return true;
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }

    Waitable* AsWaitable() noexcept override { return (m_access & SYNCHRONIZE) != 0 ? &Wait() : nullptr; }
    void OnHandleClosed() noexcept override
    {
        if (m_block)
            m_block->ReleaseName();
    }

protected:
    NamedObject(ObjectKind kind, std::shared_ptr<NamedBlock> block, DWORD access) noexcept
        : Object(kind), m_access(access), m_block(std::move(block))
    {
    }
    virtual Waitable& Wait() noexcept = 0;

private:
    const DWORD m_access;
    const std::shared_ptr<NamedBlock> m_block; // null without a name
};

// An object that is nothing but its state, which lies in its block, or in itself without a name. Waits see
// it through W(state, parameter, shared).
template <typename W, typename State, ObjectKind ItsKind, DWORD AllAccess>
class StateObject final : public NamedObject
{
public:
    static constexpr ObjectKind kKind = ItsKind;
    static constexpr DWORD kAllAccess = AllAccess;

    template <typename Initial>
    static void Initialise(void* state, const Initial& initial) noexcept
    {
        MakeState<State>(state, initial);
    }

    template <typename Initial>
    StateObject(std::uint32_t parameter, const Initial& initial) noexcept
        : NamedObject(kKind, nullptr, kAllAccess), m_own(initial), m_waitable(m_own, parameter, false)
    {
    }
    StateObject(const std::shared_ptr<NamedBlock>& block, DWORD access) noexcept
        : NamedObject(kKind, block, access), m_waitable(*static_cast<State*>(block->State()), block->Parameter(), true)
    {
    }

    W& Get() noexcept { return m_waitable; }

private:
    Waitable& Wait() noexcept override { return m_waitable; }

    State m_own{};
    W m_waitable;
};

inline HANDLE InsertNamed(std::unique_ptr<Object> object) noexcept
{
    if (object)
        return InsertHandle(std::move(object));
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
}

// A new object, or a handle to the existing one of that name. T(parameter, initial) is an object without a
// name, T(block, access) a handle to a named one, in whose block T::Initialise makes the state.
template <typename T, typename Initial>
HANDLE CreateNamed(const SECURITY_ATTRIBUTES* security, LPCWSTR name, std::uint32_t parameter, const Initial& initial)
{
    NamedBlock::Request request{.name = name ? name : u"", .kind = T::kKind, .parameter = parameter};
    if (!AccessFromSecurity(security, request.forEveryone))
        return nullptr;
    if (request.name.empty()) {
        SetLastError(ERROR_SUCCESS);
        return InsertNamed(std::unique_ptr<Object>(new (std::nothrow) T(parameter, initial)));
    }
    std::shared_ptr<NamedBlock> block = NamedBlock::Create(
        request, [](void* state, const void* context) { T::Initialise(state, *static_cast<const Initial*>(context)); },
        &initial);
    return block ? InsertNamed(std::make_unique<T>(std::move(block), T::kAllAccess)) : nullptr;
}

template <typename T>
HANDLE OpenNamed(DWORD access, LPCWSTR name)
{
    if ((access & ~T::kAllAccess) != 0) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    if (!name) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::shared_ptr<NamedBlock> block = NamedBlock::Open(name, T::kKind);
    return block ? InsertNamed(std::make_unique<T>(std::move(block), access)) : nullptr;
}

// For the 8-bit forms: a name as UTF-16, or null as it was.
class WideName
{
public:
    explicit WideName(LPCSTR name) : m_given(name != nullptr), m_text(name ? Utf16FromUtf8(name) : std::u16string()) {}
    LPCWSTR Get() const noexcept { return m_given ? m_text.c_str() : nullptr; }

private:
    bool m_given;
    std::u16string m_text;
};

} // namespace vlt::posix
