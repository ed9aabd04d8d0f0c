#include "ARDCommon/VirusLog.h"

#include "ARDCommon/CGEvent.h"
#include "ARDCommon/ProgramFolder.h"
#include "ARDCommon/VlDebug.h"
#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/Unique.h"

#include <ctime>

namespace
{

constexpr int kRecordKind = 0x100000;
constexpr int kRecordVersion = 1;
constexpr WCHAR kByteOrderMark = 0xFEFF;

// What the line says of a record: fields 6 to 8.
struct LogTexts {
    bool anonymous = false; // neither a threat name nor an infected path
    int kind = 1;
    WString threat;
    WString file;
};

LogTexts TextsOf(const AsDetectionRecord& record)
{
    const WStringView threat = vlt::FieldText(record.threatName);
    const WStringView path = vlt::FieldText(record.infectedPath);
    const WStringView second = vlt::FieldText(record.secondPath);
    LogTexts texts;
    if (threat.empty() && path.empty()) {
        texts.anonymous = true;
        texts.threat = TEXT("---");
        texts.file = second;
        return texts;
    }
    texts.kind = path.size() == 2 ? 0 : 1;
    texts.threat = threat;
    texts.file = path;
    if (!second.empty())
        texts.file.append(TEXT(" (")).append(second).append(TEXT(")"));
    return texts;
}

WString LineOf(const AsDetectionRecord& record, const LogTexts& texts, const SYSTEMTIME& now)
{
    WString line =
        vlt::Format(TEXT("%04d%02d%02d|%02d%02d%02d|%08d|%08d|2|%d|"), int{now.wYear}, int{now.wMonth}, int{now.wDay},
                    int{now.wHour}, int{now.wMinute}, int{now.wSecond}, kRecordKind, kRecordVersion, texts.kind);
    line.append(texts.threat).append(TEXT("|")).append(texts.file);
    line += vlt::Format(TEXT("|%d|%d|%d|%d\r\n"), static_cast<int>(record.firstAction),
                        static_cast<int>(record.firstResult), static_cast<int>(record.secondAction),
                        static_cast<int>(record.secondResult));
    return line;
}

} // namespace

bool CVirusLogForRealTimeScan2::WriteVirusLog(const AsDetectionRecord* record) const
{
    VLT_TRACE(40, "Enter CVirusLogForRealTimeScan2::WriteVirusLog()...");
    if (record == nullptr) {
        VLT_TRACE(20, "*** CVirusLogForRealTimeScan2::WriteVirusLog() - _lpVirusInfo was invalid handle.");
        return false;
    }
    // One clock reading, or a line written at midnight could name another day than its file.
    SYSTEMTIME now{};
    GetLocalTime(&now);
    const LogTexts texts = TextsOf(*record);
    if (!WriteVirusLogToFile(now, LineOf(*record, texts, now))) {
        VLT_TRACE(20, "*** CVirusLogForRealTimeScan2::WriteVirusLog() - Failed to WriteVirusLogToFile().");
        return false;
    }
    if (!texts.anonymous)
        WriteLastFoudVirusAndNotifyToMainUI(now, texts.threat, texts.file);
    VLT_TRACE(40, "Leave CVirusLogForRealTimeScan2::WriteVirusLog()...");
    return true;
}

bool CVirusLogForRealTimeScan2::WriteVirusLogToFile(const SYSTEMTIME& localTime, const WString& line) const
{
    VLT_TRACE(40, "Enter CVirusLogForRealTimeScan2::WriteVirusLogToFile()...");
    const std::string folder = vlt::ToNarrow(vlt::ProgramFolder()) + "Log\\";
    CreateDirectoryA(folder.c_str(), nullptr);
    const std::string name = vlt::Format("%s%04d%02d%02d.%s", folder, int{localTime.wYear}, int{localTime.wMonth},
                                         int{localTime.wDay}, "VLG");
    const bool isNew = GetFileAttributesA(name.c_str()) == INVALID_FILE_ATTRIBUTES;

    SECURITY_ATTRIBUTES security{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
    const vlt::FileHandle file(CreateFileA(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &security, OPEN_ALWAYS,
                                           FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        VLT_TRACE(20,
                  "*** CVirusLogForRealTimeScan2::WriteVirusLogToFile() - Failed to CreateFile(). LastError[0x%08x]",
                  GetLastError());
        return false;
    }
    // The low half of a valid position can look like the failure value; only the error tells.
    LONG high = 0;
    SetLastError(NO_ERROR);
    if (SetFilePointer(file.Get(), 0, &high, FILE_END) == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR) {
        VLT_TRACE(
            20, "*** CVirusLogForRealTimeScan2::WriteVirusLogToFile() - Failed to SetFilePointer(). LastError[0x%08x]",
            GetLastError());
        return false;
    }
    const WString text = isNew ? kByteOrderMark + line : line;
    const DWORD size = static_cast<DWORD>(text.size() * sizeof(WCHAR));
    DWORD written = 0;
    if (!WriteFile(file.Get(), text.data(), size, &written, nullptr)) {
        VLT_TRACE(20, "*** CVirusLogForRealTimeScan2::WriteVirusLogToFile() - Failed to WriteFile(). LastError[0x%08x]",
                  GetLastError());
        return false;
    }
    FlushFileBuffers(file.Get());
    if (written != size) {
        VLT_TRACE(20, "*** CVirusLogForRealTimeScan2::WriteVirusLogToFile() - dwWriteSize was invalid size.");
        return false;
    }
    VLT_TRACE(40, "Leave CVirusLogForRealTimeScan2::WriteVirusLogToFile()...");
    return true;
}

void CVirusLogForRealTimeScan2::WriteLastFoudVirusAndNotifyToMainUI(const SYSTEMTIME& /*localTime*/,
                                                                    const WString& threat, const WString& file) const
{
    const std::string settings = vlt::ToNarrow(vlt::SettingsFile());
    const auto write = [&](const char* key, const std::string& value) {
        WritePrivateProfileStringA("Info", key, value.c_str(), settings.c_str());
    };
    write("LastVirus", vlt::ToNarrow(threat));
    write("LastInfectFile", vlt::ToNarrow(file));
    write("LastTime", vlt::Format("%d", static_cast<int>(std::time(nullptr))));
    CGEvent refresh;
    if (refresh.Create(TEXT("Event_Refresh_Status")))
        refresh.Pulse();
}
