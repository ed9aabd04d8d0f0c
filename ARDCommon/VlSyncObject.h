// The lock that code asks for when it does not care which kind it gets.
#pragma once

class VlSyncObject
{
public:
    virtual ~VlSyncObject() = default;
    virtual void Lock() = 0;
    virtual void Unlock() = 0;
};

// Not to be held across a call that can raise a structured exception: on Windows it would stay locked.
class VlLock
{
public:
    explicit VlLock(VlSyncObject& object) : m_object(object) { m_object.Lock(); }
    ~VlLock() { m_object.Unlock(); }
    VlLock(const VlLock&) = delete;
    VlLock& operator=(const VlLock&) = delete;

private:
    VlSyncObject& m_object;
};
