// Linux: what fanotify needs, and whether each mount below a guarded folder has its mark.
#include "platform/Format.h"
#include "suite/Common/HostPath.h"
#include "tools/vlctl/Doctor.h"
#include "tools/vlctl/Machine.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <set>
#include <sstream>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace vlt::ctl
{
namespace
{

namespace fs = std::filesystem;

constexpr unsigned CapSysAdmin = 21; // bit of CapEff, capability.h

fs::path ProcFolder(const Patient& patient)
{
    return fs::path("/proc") / (patient.process == 0 ? "self" : std::to_string(patient.process));
}

// The effective capabilities of the service, or of this program while it does not run.
std::uint64_t Capabilities(const Patient& patient)
{
    std::ifstream file(ProcFolder(patient) / "status");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with("CapEff:"))
            return std::strtoull(line.c_str() + 7, nullptr, 16);
    return 0;
}

// A descriptor and a folder, gone at the end.
struct Trial {
    int group = fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC | FAN_NONBLOCK, O_RDONLY | O_CLOEXEC);
    int error = group < 0 ? errno : 0;
    std::string folder;

    Trial()
    {
        std::error_code ignored;
        std::string name = (fs::temp_directory_path(ignored) / "vlctl-doctor-XXXXXX").string();
        if (group >= 0 && mkdtemp(name.data()))
            folder = name;
    }
    ~Trial()
    {
        if (group >= 0)
            close(group);
        if (!folder.empty())
            rmdir(folder.c_str());
    }
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    // Only the empty folder is marked: nobody waits for an answer that does not come.
    bool Takes(std::uint64_t events) const
    {
        return fanotify_mark(group, FAN_MARK_ADD | FAN_MARK_ONLYDIR, events, AT_FDCWD, folder.c_str()) == 0;
    }
};

struct Mount {
    std::string id; // hexadecimal, as fdinfo has it
    fs::path point;
    std::string type;
};

// mountinfo writes blanks and the like as \ooo.
std::string Unescaped(const std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size()) {
            result += static_cast<char>(std::strtol(text.substr(i + 1, 3).c_str(), nullptr, 8));
            i += 3;
        } else {
            result += text[i];
        }
    }
    return result;
}

std::vector<Mount> Mounts(const Patient& patient)
{
    std::vector<Mount> mounts;
    std::ifstream file(ProcFolder(patient) / "mountinfo");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string id, parent, device, root, point, word, type;
        words >> id >> parent >> device >> root >> point;
        while (words >> word && word != "-") {
        }
        words >> type;
        mounts.push_back({Format("%x", std::atoi(id.c_str())), Unescaped(point), type});
    }
    return mounts;
}

// The marks of the service's fanotify groups, as the kernel shows them: "ino:..", "mnt_id:..", "sdev:..".
class Marks
{
public:
    explicit Marks(const Patient& patient)
    {
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(ProcFolder(patient) / "fdinfo", error)) {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);)
                if (line.starts_with("fanotify "))
                    Take(line);
        }
        m_readable = !error;
    }

    bool Readable() const { return m_readable; }
    bool Cover(const fs::path& folder, const Mount* mount) const
    {
        struct stat info {
        };
        if (stat(folder.c_str(), &info) != 0)
            return false;
        const std::string device = Format("%x", (major(info.st_dev) << 20) | minor(info.st_dev));
        // Folders of one btrfs have device numbers of their own, which the marks do not.
        const std::string number = Format("ino:%llx ", static_cast<unsigned long long>(info.st_ino));
        if (const auto found = m_marks.lower_bound(number);
            mount && mount->type == "btrfs" && found != m_marks.end() && found->starts_with(number))
            return true;
        return m_marks.contains(Format("ino:%llx sdev:%s", static_cast<unsigned long long>(info.st_ino), device)) ||
               m_marks.contains("sdev:" + device) || (mount && m_marks.contains("mnt_id:" + mount->id));
    }

private:
    // "fanotify ino:4f969 sdev:800013 mflags:..", "fanotify mnt_id:12 mflags:..", "fanotify sdev:800013 mflags:.."
    void Take(const std::string& line)
    {
        const std::size_t begin = std::strlen("fanotify "), end = line.find(" mflags:");
        if (end != std::string::npos)
            m_marks.insert(line.substr(begin, end - begin));
    }

    std::set<std::string> m_marks;
    bool m_readable = false;
};

bool IsBelow(const fs::path& path, const fs::path& folder)
{
    const fs::path rest = path.lexically_relative(folder);
    return !rest.empty() && *rest.begin() != ".." && rest != ".";
}

void CheckMarks(const fs::path& root, const Marks& marks, const std::vector<Mount>& mounts, Findings& findings)
{
    constexpr const char* check = "guarded";
    constexpr const char* again = "vlctl service stop and start: what is mounted is looked for then";
    const Mount* own = nullptr; // the mount that the root is in
    for (const Mount& mount : mounts)
        if ((root == mount.point || IsBelow(root, mount.point)) &&
            (!own || mount.point.native().size() >= own->point.native().size()))
            own = &mount;
    if (!marks.Cover(root, own))
        findings.Problem(check, root.native() + " has no mark: its files are not guarded", again);
    for (const Mount& mount : mounts)
        if (IsBelow(mount.point, root) && !marks.Cover(mount.point, &mount))
            findings.Warning(check, mount.point.native() + " (" + mount.type + "), mounted below, is not guarded",
                             std::string(again) +
                                 "; network file systems need MonitorNetwork, and kernel ones stay out");
}

// Folders of the ini that are there, without links.
std::vector<fs::path> Roots(const Patient& patient, Findings& findings)
{
    std::vector<fs::path> roots;
    for (const std::string& folder : patient.settings.folders) {
        std::error_code error;
        const fs::path root = fs::canonical(scan::ToHostUtf8(folder), error);
        if (error || !fs::is_directory(root, error))
            findings.Problem("guarded", folder + " is missing or no folder",
                             "make it and restart the service, or take it from ArdScan.ini");
        else
            roots.push_back(root);
    }
    if (patient.settings.folders.empty())
        findings.Problem("guarded", "ArdScan.ini names no folder to guard",
                         "add Folder0=PATH to its section [Guard] and restart the service");
    return roots;
}

bool SeesOtherMounts(const Patient& patient)
{
    std::error_code error, ownError;
    const fs::path theirs = fs::read_symlink(ProcFolder(patient) / "ns/mnt", error);
    const fs::path own = fs::read_symlink("/proc/self/ns/mnt", ownError);
    return !error && !ownError && theirs != own;
}

} // namespace

void CheckPrivilege(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "privilege";
    const char* const who = patient.process == 0 ? "this account" : "the service";
    if (Capabilities(patient) >> CapSysAdmin & 1)
        findings.Ok(check, std::string(who) + " may refuse what others open");
    else
        findings.Problem(check, std::string(who) + " lacks CAP_SYS_ADMIN: files are only scanned after a write",
                         "start the service as root, or give its unit CAP_SYS_ADMIN");
}

void CheckKernel(const Patient&, Findings& findings)
{
    constexpr const char* check = "kernel";
    constexpr int oldest[] = {5, 16}; // the first with futex_waitv
    utsname system{};
    int version[2] = {};
    if (uname(&system) == 0 && std::sscanf(system.release, "%d.%d", &version[0], &version[1]) == 2 &&
        (version[0] < oldest[0] || (version[0] == oldest[0] && version[1] < oldest[1])))
        findings.Problem(check, Format("Linux %s is too old for the service", system.release),
                         Format("run Linux %d.%d or later", oldest[0], oldest[1]));
    const Trial trial;
    if (trial.error == EPERM)
        findings.Unknown(check, "fanotify cannot be tried without CAP_SYS_ADMIN", "run vlctl doctor as root");
    else if (trial.error != 0)
        findings.Problem(check, Format("no fanotify: %s", std::strerror(trial.error)),
                         "use a kernel with CONFIG_FANOTIFY");
    else if (trial.folder.empty())
        findings.Unknown(check, "no temporary folder could be made to try fanotify", "make room in /tmp");
    else if (!trial.Takes(FAN_OPEN_PERM | FAN_OPEN_EXEC_PERM))
        findings.Problem(check, "fanotify has no permission events: files are only scanned after a write",
                         "use a kernel with CONFIG_FANOTIFY_ACCESS_PERMISSIONS");
    else
        findings.Ok(check, Format("Linux %s with fanotify permission events", system.release));
}

void CheckFolders(const Patient& patient, Findings& findings)
{
    constexpr const char* check = "guarded";
    const std::vector<fs::path> roots = Roots(patient, findings);
    if (patient.process == 0 || patient.engine.mode != "prevention")
        return;
    if (SeesOtherMounts(patient))
        findings.Warning(check, "the service is in a mount namespace of its own: it may guard other files than you see",
                         "start it without PrivateMounts, PrivateTmp and the like");
    const Marks marks(patient);
    if (!marks.Readable())
        return findings.Unknown(check, "the service's marks cannot be read", "run vlctl doctor as root");
    const std::vector<Mount> mounts = Mounts(patient);
    for (const fs::path& root : roots)
        CheckMarks(root, marks, mounts, findings);
}

} // namespace vlt::ctl
