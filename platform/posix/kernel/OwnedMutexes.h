// The mutexes that a thread has taken and not given up. Used by that thread alone.
#pragma once

#include <memory>
#include <vector>

namespace vlt::posix
{

class MutexWaitable;

class OwnedMutexes
{
public:
    void Add(std::shared_ptr<MutexWaitable> mutex);
    // Drops what the thread does not own any more: a mutex may be given up through another handle than
    // the one that it was taken through.
    void Prune() noexcept;
    // At the thread's end.
    void AbandonAll() noexcept;

private:
    std::vector<std::shared_ptr<MutexWaitable>> m_mutexes;
};

} // namespace vlt::posix
