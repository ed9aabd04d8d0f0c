#include "platform/posix/system/Module.h"

#include "platform/posix/core/Utf.h"
#include "platform/posix/file/Path.h"
#include "platform/posix/system/ElfFile.h"
#include "platform/posix/win32/system.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <map>
#include <mutex>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vlt::posix
{
namespace
{

using DllMainFunction = BOOL (*)(HINSTANCE module, DWORD reason, LPVOID reserved);
constexpr DWORD kProcessAttach = 1;
constexpr DWORD kProcessDetach = 0;

struct Module {
    std::u16string path;
    void* library = nullptr;     // of dlopen; null for a pseudo module
    const void* image = nullptr; // what dladdr gives for an address within it
    const PseudoModule* pseudo = nullptr;
    DllMainFunction entry = nullptr;
    DWORD count = 1;
};

struct Modules {
    std::recursive_mutex loader; // outermost: loading and freeing, also around DllMain
    std::mutex table;            // of all below; no foreign code runs under it
    std::map<HMODULE, Module> loaded;
    std::uintptr_t lastNumber = 0;
    HMODULE program = nullptr;
};

const void* ImageOf(const void* address)
{
    Dl_info info = {};
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

HMODULE AddModule(Modules& modules, Module module)
{
    // Values look like the addresses of images: multiples of 64 KiB.
    const auto handle = reinterpret_cast<HMODULE>(++modules.lastNumber << 16);
    modules.loaded.emplace(handle, std::move(module));
    return handle;
}

// Never destroyed: libraries may be freed while the process exits.
Modules& TheModules()
{
    static Modules& modules = *[] {
        auto* const made = new Modules;
        Module program;
        program.path = WindowsPathFromHost(ProgramHostPath());
        program.library = dlopen(nullptr, RTLD_NOW | RTLD_LOCAL);
        program.image = ImageOf(reinterpret_cast<const void*>(getauxval(AT_PHDR)));
        made->program = AddModule(*made, std::move(program));
        return made;
    }();
    return modules;
}

HMODULE Fail(DWORD code)
{
    SetLastError(code);
    return nullptr;
}

// A symbol of the library itself: dlsym looks into what it depends on too.
void* FindSymbol(const Module& module, const char* name)
{
    void* const address = dlsym(module.library, name);
    return address && ImageOf(address) == module.image ? address : nullptr;
}

bool HasPath(std::u16string_view name)
{
    return name.find_first_of(u"\\/:") != std::u16string_view::npos;
}

std::u16string_view LastName(std::u16string_view path)
{
    const std::size_t slash = path.find_last_of(u"\\/:");
    return slash == std::u16string_view::npos ? path : path.substr(slash + 1);
}

// A name without a dot means a .dll; one that ends in a dot has no extension.
std::u16string WithExtension(std::u16string_view name)
{
    std::u16string full(name);
    if (LastName(name).find(u'.') == std::u16string_view::npos)
        full += u".dll";
    else if (full.back() == u'.')
        full.pop_back();
    return full;
}

std::u16string ProgramFolder()
{
    const std::u16string program = WindowsPathFromHost(ProgramHostPath());
    return program.substr(0, program.rfind(u'\\') + 1);
}

// The file that a name stands for, by its full path; nothing when there is none.
std::optional<FullPath> FindLibraryFile(const std::u16string& name, std::string& host)
{
    std::optional<FullPath> path = ParsePath(HasPath(name) ? name : ProgramFolder() + name);
    if (!path)
        return std::nullopt;
    const FoundPath found = FindPath(*path);
    struct stat status;
    if (!found.exists || stat(found.host.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    host = found.host;
    return path;
}

DWORD ErrorFromLoader(const char* message)
{
    const std::string_view text(message ? message : "");
    if (text.find("undefined symbol") != std::string_view::npos || text.find("version `") != std::string_view::npos)
        return ERROR_PROC_NOT_FOUND;
    if (text.find("cannot open shared object file") != std::string_view::npos)
        return ERROR_MOD_NOT_FOUND; // one that it depends on
    return ERROR_BAD_EXE_FORMAT;
}

HMODULE LoadPseudoModule(const PseudoModule& pseudo)
{
    Modules& modules = TheModules();
    const std::lock_guard guard(modules.table);
    for (auto& [handle, module] : modules.loaded) {
        if (module.pseudo == &pseudo) {
            ++module.count;
            return handle;
        }
    }
    Module module;
    module.path = std::u16string(u"C:\\Windows\\System32\\") + pseudo.name;
    module.pseudo = &pseudo;
    return AddModule(modules, std::move(module));
}

// Calls DllMain with its own name for the module. Not under the table's lock.
bool Attach(HMODULE handle, DllMainFunction entry)
{
    if (!entry || entry(handle, kProcessAttach, nullptr))
        return true;
    entry(handle, kProcessDetach, nullptr);
    return false;
}

HMODULE LoadFile(const std::string& host, const FullPath& path)
{
    Modules& modules = TheModules();
    const std::lock_guard loaderGuard(modules.loader);
    if (!IsLoadableLibrary(host))
        return Fail(ERROR_BAD_EXE_FORMAT);
    void* const library = dlopen(host.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        return Fail(ErrorFromLoader(dlerror()));
    Module module;
    module.library = library;
    link_map* map = nullptr;
    if (dlinfo(library, RTLD_DI_LINKMAP, &map) == 0)
        module.image = ImageOf(map->l_ld);
    module.path = path.Text();
    module.entry = reinterpret_cast<DllMainFunction>(FindSymbol(module, "DllMain"));
    const DllMainFunction entry = module.entry;
    HMODULE handle = nullptr;
    {
        const std::lock_guard guard(modules.table);
        for (auto& [known, other] : modules.loaded) {
            if (other.library != library)
                continue;
            ++other.count;
            dlclose(library); // the count is ours
            return known;
        }
        handle = AddModule(modules, std::move(module));
    }
    if (Attach(handle, entry))
        return handle;
    {
        const std::lock_guard guard(modules.table);
        modules.loaded.erase(handle);
    }
    dlclose(library);
    return Fail(ERROR_DLL_INIT_FAILED);
}

DWORD CopyPath(const std::u16string& path, LPWSTR buffer, DWORD size)
{
    if (size == 0 || !buffer) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    const std::size_t length = std::min<std::size_t>(path.size(), size - 1);
    path.copy(buffer, length);
    buffer[length] = 0;
    if (length == path.size())
        return static_cast<DWORD>(length);
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

// The name that the program was started by, in its true folder. A program that is started by a link goes by
// the link's name, as on Windows: an installation keeps it elsewhere than the folder that it works in.
std::string StartedBy()
{
    const auto* const given = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    const std::string path(given ? given : "");
    const std::size_t cut = path.rfind('/');
    std::array<char, PATH_MAX> folder;
    if (path.empty() || path[0] != '/' || !realpath(path.substr(0, cut + 1).c_str(), folder.data()))
        return {};
    return std::string(folder.data()) + path.substr(cut);
}

} // namespace

const std::string& ProgramHostPath()
{
    static const std::string& path = *new std::string([] {
        std::array<char, PATH_MAX> text;
        const ssize_t length = readlink("/proc/self/exe", text.data(), text.size());
        std::string found(text.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
        // Replaced by an update while it runs: it keeps its name.
        constexpr std::string_view deleted = " (deleted)";
        if (found.ends_with(deleted) && access(found.c_str(), F_OK) != 0)
            found.resize(found.size() - deleted.size());
        const std::string link = StartedBy();
        if (realpath(link.c_str(), text.data()) && found == text.data())
            return link;
        return found;
    }());
    return path;
}

std::optional<const void*> ModuleImage(HMODULE handle)
{
    Modules& modules = TheModules();
    const std::lock_guard guard(modules.table);
    const auto at = modules.loaded.find(handle ? handle : modules.program);
    if (at == modules.loaded.end())
        return std::nullopt;
    return at->second.image;
}

} // namespace vlt::posix

using namespace vlt::posix;

HMODULE LoadLibraryW(LPCWSTR file)
{
    if (!file || !*file)
        return Fail(ERROR_MOD_NOT_FOUND);
    const std::u16string name = WithExtension(file);
    std::string host;
    if (const auto path = FindLibraryFile(name, host))
        return LoadFile(host, *path);
    if (const PseudoModule* const pseudo = HasPath(name) ? nullptr : FindPseudoModule(name))
        return LoadPseudoModule(*pseudo);
    return Fail(ERROR_MOD_NOT_FOUND);
}

BOOL FreeLibrary(HMODULE handle)
{
    Modules& modules = TheModules();
    const std::lock_guard loaderGuard(modules.loader);
    Module module;
    {
        const std::lock_guard guard(modules.table);
        const auto at = modules.loaded.find(handle);
        if (at == modules.loaded.end()) {
            SetLastError(ERROR_MOD_NOT_FOUND);
            return FALSE;
        }
        if (handle == modules.program || --at->second.count > 0)
            return TRUE;
        module = at->second;
        if (module.pseudo)
            modules.loaded.erase(at);
    }
    if (module.pseudo)
        return TRUE;
    // The module is still known while it says goodbye; it may even load itself again.
    if (module.entry)
        module.entry(handle, kProcessDetach, nullptr);
    {
        const std::lock_guard guard(modules.table);
        const auto at = modules.loaded.find(handle);
        if (at == modules.loaded.end() || at->second.count > 0)
            return TRUE;
        modules.loaded.erase(at);
    }
    dlclose(module.library);
    return TRUE;
}

FARPROC GetProcAddress(HMODULE handle, LPCSTR name)
{
    constexpr std::uintptr_t kMostOrdinal = 0xFFFF;
    if (reinterpret_cast<std::uintptr_t>(name) <= kMostOrdinal) {
        SetLastError(name ? ERROR_NOT_SUPPORTED : ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    Modules& modules = TheModules();
    const std::lock_guard guard(modules.table);
    const auto at = modules.loaded.find(handle ? handle : modules.program);
    if (at == modules.loaded.end()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    if (const PseudoModule* const pseudo = at->second.pseudo) {
        for (const PseudoExport& entry : pseudo->exports) {
            if (std::strcmp(entry.name, name) == 0)
                return entry.function;
        }
    } else if (void* const address = FindSymbol(at->second, name)) {
        return reinterpret_cast<FARPROC>(address);
    }
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
}

DWORD GetModuleFileNameW(HMODULE handle, LPWSTR buffer, DWORD size)
{
    std::u16string path;
    {
        Modules& modules = TheModules();
        const std::lock_guard guard(modules.table);
        const auto at = modules.loaded.find(handle ? handle : modules.program);
        if (at == modules.loaded.end()) {
            SetLastError(ERROR_MOD_NOT_FOUND);
            return 0;
        }
        path = at->second.path;
    }
    return CopyPath(path, buffer, size);
}

HMODULE GetModuleHandleW(LPCWSTR name)
{
    Modules& modules = TheModules();
    if (!name)
        return modules.program;
    const std::u16string wanted = FoldCase(WithExtension(name));
    const std::lock_guard guard(modules.table);
    for (const auto& [handle, module] : modules.loaded) {
        const std::u16string path = FoldCase(module.path);
        if (HasPath(wanted) ? path == wanted : LastName(path) == wanted)
            return handle;
    }
    return Fail(ERROR_MOD_NOT_FOUND);
}
