// What `vlctl doctor` looks at, each check for itself: one that fails to look says so and the others go on.
#pragma once

#include "tools/vlctl/EngineReport.h"

#include <string>
#include <vector>

namespace vlt::ctl
{

struct Finding {
    std::string check;
    const char* state; // "ok", "warning", "problem", or "unknown" when it could not be looked at
    std::string detail;
    std::string remedy; // empty when there is nothing to do
};

class Findings
{
public:
    void Ok(const char* check, std::string detail) { Add(check, "ok", std::move(detail), {}); }
    void Warning(const char* check, std::string detail, std::string remedy)
    {
        Add(check, "warning", std::move(detail), std::move(remedy));
    }
    void Problem(const char* check, std::string detail, std::string remedy)
    {
        Add(check, "problem", std::move(detail), std::move(remedy));
    }
    void Unknown(const char* check, std::string detail, std::string remedy)
    {
        Add(check, "unknown", std::move(detail), std::move(remedy));
    }
    const std::vector<Finding>& All() const noexcept { return m_all; }
    bool Has(const char* check) const;

private:
    void Add(const char* check, const char* state, std::string detail, std::string remedy)
    {
        m_all.push_back({check, state, std::move(detail), std::move(remedy)});
    }

    std::vector<Finding> m_all;
};

struct Patient {
    WString folder;    // of the service, else of the suite; with a backslash at its end, or empty
    DWORD process = 0; // of the running service
    scan::EngineSettings settings;
    EngineReport engine; // mode "none" when the service does not run
};

void CheckSettings(const Patient& patient, Findings& findings);
void CheckExclusions(const Patient& patient, Findings& findings);
void CheckLibraries(const Patient& patient, Findings& findings);
void CheckPatterns(const Patient& patient, Findings& findings);
void CheckClock(const Patient& patient, Findings& findings);
void CheckDisk(const Patient& patient, Findings& findings);
void CheckStale(const Patient& patient, Findings& findings);

// One implementation for each host.
void CheckPrivilege(const Patient& patient, Findings& findings);
void CheckKernel(const Patient& patient, Findings& findings);
void CheckFolders(const Patient& patient, Findings& findings);
// Files of named objects that no living process holds. None where the system itself keeps the objects.
struct StaleObject {
    std::string file;
    bool removable; // by the service, which takes its name over then
};
std::vector<StaleObject> StaleObjects();

} // namespace vlt::ctl
