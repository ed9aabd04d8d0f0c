// Broadcasts messages to any number of receivers in other processes (NotifyFormat.h), one message at a
// time, in order, each to every receiver that lives.
//
// Notify only queues; a thread of the sender writes the message into the receivers' sections and waits
// until every one has taken it. There is no limit to that wait: delivery to every living receiver comes
// before progress, so one that never clears its flag holds back all later messages, and Stop, until its
// process ends. A receiver whose section is gone, is too small, or is named but no section loses its
// slot in the list.
//
// The list and the sections can be written by every account at any time. Nothing read from them is
// trusted: texts are copied before use and no view is touched beyond its end.
#pragma once

#include "ARDCommon/NotifyFormat.h"
#include "ARDCommon/VlCriticalSection.h"
#include "ARDCommon/VlShareMemory.h"
#include "platform/Unique.h"
#include "platform/win32.h"

#include <array>
#include <list>
#include <memory>
#include <string>

class CNotifySender
{
public:
    // Opens the channel of that base name and starts the thread. A message may have one byte more than
    // maxPayload. Throws the int -1 when the list or an event cannot be made, std::bad_alloc without
    // memory. Without a thread, messages stay in the queue.
    CNotifySender(const char* baseName, DWORD maxPayload);
    CNotifySender(const CNotifySender&) = delete;
    CNotifySender& operator=(const CNotifySender&) = delete;
    // Stops, if the owner has not, and drops what is still queued.
    ~CNotifySender();

    // Queues a copy of the message; any thread, never blocks. False when it is too long or there is no
    // memory.
    bool Notify(const void* data, DWORD size) noexcept;

    // Ends the thread, after the messages that are queued by then, and waits for it. A second call does
    // nothing.
    void Stop();

private:
    // What is written at offset 4 of a section: the payload's size, then the payload.
    struct Block {
        std::unique_ptr<BYTE[]> bytes;
        std::size_t size; // of all bytes
    };
    struct Written {
        CVlShareMemory section;
        NotifyMessage* message = nullptr; // null: nothing to wait for
        char name[kNotifySlotSize] = {};  // of the section
        bool taken = false;               // the receiver was seen to have it
    };
    class List;

    static unsigned __stdcall ThreadProc(void* self);
    void CreateEvents();
    void EndThread();
    void Run();
    void Drain();
    void Send(const Block& block);
    bool NotifyToReceiver(const Block& block);
    bool WriteData(const char* name, const Block& block, Written& written);
    void GiveChance();
    bool AnyUnread();
    void CheckAllReadFlag();
    bool CheckReadFlag(const char* name, const Written& written);
    bool IsList(const char* name) const;

    VlCriticalSection m_lock; // for the queue
    CVlShareMemory m_list;
    vlt::KernelHandle m_addQueueEvent;
    vlt::KernelHandle m_stopEvent;
    vlt::KernelHandle m_thread;
    vlt::KernelHandle m_notifyEvent;
    vlt::KernelHandle m_sentEvent; // this and the next may be missing
    vlt::KernelHandle m_readEvent;
    DWORD m_limit;
    std::string m_baseName;
    std::string m_listName;
    std::string m_eventName;
    std::list<Block> m_queue;
    std::array<Written, kNotifySlotCount> m_written; // of the message under way; the thread's
};
