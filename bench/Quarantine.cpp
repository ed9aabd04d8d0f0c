// The quarantine store beside the bare system calls and beside SQLite (WAL, NORMAL): putting a file
// away, listing, and the update of one record.
#include "bench/Measure.h"

#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/Quarantine.h"
#include "platform/Text.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sqlite3.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

namespace fs = std::filesystem;
constexpr std::size_t kAppends = 200;
constexpr std::size_t kListed = 100'000;
constexpr std::size_t kBlock = 240 * 1024;

void Require(bool fine, const char* what)
{
    if (fine)
        return;
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

std::string EncodedName(std::size_t i)
{
    return "encoded" + std::to_string(i) + ".bin";
}

// Files as the scan library leaves them. What was put away before stays: ext4 looks at every inode that
// was freed within the last minutes before it takes a new one, so a round that removed the files of the
// last one would make the next temporary file slow.
class Encoded
{
public:
    explicit Encoded(fs::path folder) : m_folder(std::move(folder)) { fs::create_directories(m_folder); }

    void Make(std::size_t count)
    {
        m_first += m_count;
        m_count = count;
        for (std::size_t i = m_first; i < m_first + m_count; ++i) {
            const int file = open((m_folder / EncodedName(i)).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
            Require(write(file, "x", 1) == 1, "write");
            close(file);
        }
    }
    // Calls put(number of a file) for each of the last made ones.
    template <typename Put>
    bench::Case Case(const char* name, Put put)
    {
        return {name,
                [this, put](std::size_t count) {
                    for (std::size_t i = m_first; i < m_first + count; ++i)
                        put(i);
                },
                [this] { Make(kAppends); }};
    }

private:
    fs::path m_folder;
    std::size_t m_first = 0;
    std::size_t m_count = 0;
};

void AppendBare(const fs::path& file, const QuarantineRecord& record)
{
    const int db = open(file.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
    Require(write(db, &record, sizeof record) == sizeof record, "append");
    close(db);
}

void RenameBare(const fs::path& folder, std::size_t i)
{
    const fs::path from = folder / EncodedName(i);
    const fs::path to = folder / (std::to_string(i) + ".tmp");
    Require(rename(from.c_str(), to.c_str()) == 0, "rename");
}

// The temporary file that makes sure of a name.
void ReserveBare(const fs::path& folder, std::size_t i)
{
    const fs::path name = folder / (std::to_string(i) + ".tmp");
    close(open(name.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
    Require(unlink(name.c_str()) == 0, "unlink");
}

class Sqlite
{
public:
    explicit Sqlite(const fs::path& file)
    {
        Require(sqlite3_open(file.c_str(), &m_db) == SQLITE_OK, "sqlite3_open");
        Run("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
            "CREATE TABLE IF NOT EXISTS record (id INTEGER PRIMARY KEY, data BLOB)");
        sqlite3_prepare_v2(m_db, "INSERT INTO record (data) VALUES (?)", -1, &m_insert, nullptr);
        sqlite3_prepare_v2(m_db, "SELECT data FROM record", -1, &m_select, nullptr);
    }
    ~Sqlite()
    {
        sqlite3_finalize(m_insert);
        sqlite3_finalize(m_select);
        sqlite3_close(m_db);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;

    void Run(const char* sql) { Require(sqlite3_exec(m_db, sql, nullptr, nullptr, nullptr) == SQLITE_OK, sql); }

    void Insert(const QuarantineRecord& record)
    {
        sqlite3_bind_blob(m_insert, 1, &record, sizeof record, SQLITE_STATIC);
        Require(sqlite3_step(m_insert) == SQLITE_DONE, "insert");
        sqlite3_reset(m_insert);
    }

    std::size_t Count()
    {
        std::size_t count = 0;
        while (sqlite3_step(m_select) == SQLITE_ROW) {
            QuarantineRecord record;
            std::memcpy(&record, sqlite3_column_blob(m_select, 0), sizeof record);
            count += record.type >= kFirstQuarantinedType;
        }
        sqlite3_reset(m_select);
        return count;
    }

private:
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_insert = nullptr;
    sqlite3_stmt* m_select = nullptr;
};

QuarantineRecord SampleRecord(std::size_t i)
{
    QuarantineRecord record{};
    record.platform = 2;
    record.type = kQuarantinedType;
    record.status = kQuarantinedStatus;
    vlt::CopyToField(record.sourceName, WStringView(TEXT("bad.txt")));
    vlt::CopyToField(record.sourceFolder, WStringView(TEXT("C:\\folder\\")));
    vlt::CopyToField(record.quarantinedName, WStringView(vlt::ToWide(std::to_string(i) + ".tmp")));
    vlt::CopyToField(record.threatName, WStringView(TEXT("Threat")));
    return record;
}

void FillRecords(const fs::path& file, std::size_t count)
{
    std::vector<QuarantineRecord> records;
    for (std::size_t i = 0; i < count; ++i)
        records.push_back(SampleRecord(i));
    const int db = open(file.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
    const std::size_t size = records.size() * sizeof(QuarantineRecord);
    Require(write(db, records.data(), size) == static_cast<ssize_t>(size), "fill");
    close(db);
}

// The store in a folder of the machine root, so that all cases use one file system.
struct Store {
    Store(const fs::path& root, const char* name) : folder(root / "drives/c" / name)
    {
        fs::create_directories(folder);
        const WString path = TEXT("C:\\") + vlt::ToWide(name);
        Require(store.QuarantineInitW(vlt::ProgramFolder().c_str(), path.c_str()) == 1, "QuarantineInitW");
    }
    fs::path folder;
    CQuarantine store;
};

void BenchAppend(const fs::path& root)
{
    Store store(root, "append");
    const fs::path bare = root / "bare";
    const fs::path all = root / "all";
    const fs::path lite = root / "lite";
    Encoded sides[] = {Encoded(store.folder), Encoded(bare), Encoded(all), Encoded(lite)};
    Sqlite sqlite(root / "append.sqlite");
    const QuarantineRecord record = SampleRecord(0);
    bench::Title("Putting an encoded file away");
    bench::Compare({sides[0].Case("quarantine store",
                                  [&](std::size_t i) {
                                      const WString name = vlt::ToWide(EncodedName(i));
                                      Require(store.store.RenameEncodeFileW(name.c_str(), TEXT("C:\\folder\\bad.txt"),
                                                                            TEXT("Threat")) == 1,
                                              "RenameEncodeFileW");
                                  }),
                    sides[1].Case("rename, open, append, close",
                                  [&](std::size_t i) {
                                      RenameBare(bare, i);
                                      AppendBare(bare / "QUADB.VDB", record);
                                  }),
                    sides[2].Case("same, temporary file",
                                  [&](std::size_t i) {
                                      ReserveBare(all, i);
                                      RenameBare(all, i);
                                      AppendBare(all / "QUADB.VDB", record);
                                  }),
                    sides[3].Case("rename, SQLite insert",
                                  [&](std::size_t i) {
                                      RenameBare(lite, i);
                                      sqlite.Insert(record);
                                  })},
                   {1.3, 0, 1.0}, {.operations = kAppends});
}

void BenchListing(const fs::path& root)
{
    Store store(root, "list");
    FillRecords(store.folder / "QUADB.VDB", kListed);
    Sqlite sqlite(root / "list.sqlite");
    sqlite.Run("BEGIN");
    for (std::size_t i = 0; i < kListed; ++i)
        sqlite.Insert(SampleRecord(i));
    sqlite.Run("COMMIT");
    const auto list = [&](std::size_t) {
        std::size_t count = 0;
        QuarantineRecord record;
        while (store.store._ReadQuarantineDBW(&record))
            ++count;
        store.store.CloseEnumerations();
        Require(count == kListed, "listing");
    };
    const auto bulk = [&](std::size_t) {
        std::vector<QuarantineRecord> block(128);
        const int file = open((store.folder / "QUADB.VDB").c_str(), O_RDONLY | O_CLOEXEC);
        std::size_t count = 0;
        for (ssize_t got = 1; got > 0;) {
            got = read(file, block.data(), block.size() * sizeof(QuarantineRecord));
            for (std::size_t i = 0; i < static_cast<std::size_t>(got) / sizeof(QuarantineRecord); ++i)
                count += block[i].type >= kFirstQuarantinedType;
        }
        close(file);
        Require(count == kListed, "bulk read");
    };
    bench::Title("Listing 100,000 records");
    bench::Compare({{"quarantine store", list},
                    {"read in large blocks", bulk},
                    {"SQLite select", [&](std::size_t) { Require(sqlite.Count() == kListed, "select"); }}},
                   {1.5, 1.0}, {.operations = 1, .rounds = 9});
}

void CopyBare(const fs::path& folder)
{
    static std::vector<char> block(kBlock);
    const fs::path from = folder / "QUADB.VDB";
    const fs::path to = folder / "$VB$.$$$";
    const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(to.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
    ssize_t got = 0;
    while ((got = read(in, block.data(), block.size())) > 0)
        Require(write(out, block.data(), static_cast<std::size_t>(got)) == got, "copy");
    fsync(out);
    close(in);
    close(out);
    Require(unlink(from.c_str()) == 0 && rename(to.c_str(), from.c_str()) == 0, "replace");
}

void BenchUpdate(const fs::path& root, std::size_t records, std::size_t rounds)
{
    const std::string name = "update" + std::to_string(records);
    Store store(root, name.c_str());
    const fs::path bare = root / (name + ".bare");
    fs::create_directories(bare);
    FillRecords(store.folder / "QUADB.VDB", records);
    FillRecords(bare / "QUADB.VDB", records);
    const WString key = vlt::ToWide(std::to_string(records / 2) + ".tmp");
    bench::Title("Update of one status in " + std::to_string(records) + " records");
    bench::Compare({{"quarantine store",
                     [&](std::size_t) {
                         Require(store.store.UpdateQuarantineDBW(key.c_str(), 2, TEXT("Threat")) == 1, "update");
                     }},
                    {"block copy, sync, replace", [&](std::size_t) { CopyBare(bare); }}},
                   {1.3}, {.operations = 1, .rounds = rounds});
}

} // namespace

int main()
{
    const char* const root = std::getenv("VLT_ROOT");
    if (!root)
        return 2;
    BenchAppend(root);
    BenchListing(root);
    BenchUpdate(root, 1000, 21);
    BenchUpdate(root, kListed, 5);
}
