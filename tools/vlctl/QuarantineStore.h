// The quarantine store of the service, shared with it: reading the record file and changing it while the
// service goes on. QuarantineFormat.h has the format.
//
// Whatever the records say is somebody else's word. Texts may lack their terminator, names may be paths.
#pragma once

#include "ARDCommon/QuarantineFormat.h"
#include "platform/Unique.h"

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace vlt::ctl
{

// What is behind the last whole record: left by an append that was cut short.
struct TornTail {
    std::uint64_t offset = 0;
    std::size_t size = 0; // bytes; 0 when the file ends with a whole record
};

// Files of the folder and their sizes in bytes, by their names in lower case.
using FileSizes = std::unordered_map<WString, std::uint64_t>;

// Functions throw CommandError.
class QuarantineStore
{
public:
    // With or without a backslash at its end.
    explicit QuarantineStore(WString folder);

    const WString& Folder() const noexcept { return m_folder; } // ends in a backslash

    // Every record in the order of the file, also those that are no quarantined files, without the lock.
    // A missing file has no records.
    using Visit = std::function<void(const QuarantineRecord&)>;
    TornTail Read(const Visit& visit) const;

    // Passes every record through `keep`, which may change it, and drops those for which it says false.
    // Holds the lock until the new file is in place; a torn tail stays, unless it is to be dropped. When
    // this fails or is killed the old file is there, or else whole in the scratch file.
    using Keep = std::function<bool(QuarantineRecord&)>;
    void Rewrite(const Keep& keep, bool dropTail = false) const;

    // The record file is not there while a rewrite may have left its copy.
    bool IsCutShort() const;

    // Files in the store's folder, without its own files and without folders.
    FileSizes Files() const;

    // The path of a kept file; empty when the name is not a plain one, or one of the store's own.
    WString KeptFile(WStringView name) const;

private:
    void SettleScratch() const;
    void MergeScratch() const;
    void PutScratchInPlace() const;

    const WString m_folder;
    const WString m_file;
    const WString m_scratch;
};

// The text as file names are compared on the system that the store was made for.
WString LowerCase(WStringView text);

// Gives a file another name, in place of the file that has it. Throws CommandError.
void MoveOver(const WString& from, const WString& to);

// Deletes a file whatever its attributes are. True when it is gone, also when it was not there.
bool DeleteAnyFile(const WString& path);

} // namespace vlt::ctl
