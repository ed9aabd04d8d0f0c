// The record file of a quarantine store; QuarantineFormat.h has its format.
#pragma once

#include "ARDCommon/QuarantineError.h"
#include "ARDCommon/QuarantineFormat.h"
#include "platform/Unique.h"

#include <functional>
#include <vector>

// One object belongs to one thread at a time; several objects, in several processes, may work on one
// file. Reading takes no lock and sees what others append meanwhile. Nothing throws but std::bad_alloc.
class CQuarantineDb
{
public:
    // `folder` is the store's, with or without a backslash at its end.
    explicit CQuarantineDb(const WString& folder);

    // Takes back the records of a rewrite that was cut short between its last steps. For the start of
    // the store's owner; a store in order is not touched.
    void Repair();

    // Appends the record that `fill` makes of a zeroed one, which is called with the lock held: the wait
    // for it may be long, and the record says when it was written. What fill reports ends the append.
    // After a torn append the new record begins at the next multiple of the record size, so that it and
    // the ones after it can be read.
    using Fill = std::function<QuarantineError(QuarantineRecord&)>;
    QuarantineError Append(const Fill& fill);

    // The next record of a quarantined file; the record file is made, empty, when it is not there. False
    // at the end, also at a torn record, or with `error` set after a failure.
    bool Read(QuarantineRecord& record, QuarantineError& error);
    void CloseReader();

    // Passes every record through `keep`, which may change it, and drops those for which it says false.
    // The old file stays when the new one cannot be written whole.
    using Keep = std::function<bool(QuarantineRecord&)>;
    QuarantineError Rewrite(const Keep& keep);

    QuarantineError Truncate();

private:
    bool PutScratchInPlace();
    bool MergeScratch();
    bool FillBlock(QuarantineError& error);

    const WString m_folder; // ends in a backslash
    const WString m_file;
    const WString m_scratch;
    vlt::FileHandle m_reader;
    std::vector<QuarantineRecord> m_block; // read ahead
    std::size_t m_read = 0;                // of m_block: records in it
    std::size_t m_next = 0;                // the first that was not given out
};
