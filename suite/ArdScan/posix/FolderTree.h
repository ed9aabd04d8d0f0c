// Follows the folders below the guarded ones with inotify: those that exist, those that are made or moved
// in later, and their new names.
#pragma once

#include "platform/posix/core/Fd.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace vlt::scan
{

using posix::Fd;

// Called on the thread of the tree, but for the folders found by its constructor.
class IFolderSink
{
public:
    virtual ~IFolderSink() = default;
    virtual void OnFolder(const std::filesystem::path& folder) = 0; // now followed, or has a new path
    // A file was moved in, was closed after writing, or lay in a folder before that was followed.
    virtual void OnFile(const std::filesystem::path& file, std::uint32_t direction) = 0;
    virtual void OnLost() = 0; // notifications were dropped; the folders have been walked again
};

class CFolderTree
{
public:
    // Walks the roots. `network`: also what lies on network file systems; kernel file systems never.
    // `writes`: also tell of files closed after writing.
    CFolderTree(IFolderSink& sink, std::vector<std::filesystem::path> roots, bool network, bool writes);
    ~CFolderTree();
    CFolderTree(const CFolderTree&) = delete;
    CFolderTree& operator=(const CFolderTree&) = delete;

    bool Ok() const { return static_cast<bool>(m_inotify); }

private:
    struct Folder {
        int watch = -1;
        Folder* parent = nullptr;
        std::string name;                        // of a root: its path
        std::map<std::string, Folder*> children; // each has this one as its parent
    };
    enum class Found { AtStart, Later };

    static bool Followable(const std::filesystem::path& folder, bool network);
    std::filesystem::path PathOf(const Folder& folder) const;
    void Follow(Folder* parent, const std::string& name, Found found);
    static void Attach(Folder& folder, Folder* parent, const std::string& name);
    static void Detach(Folder& folder);
    void Announce(const Folder& folder);
    void Drop(Folder& folder, bool removeWatch);
    void Rescan();
    void Run();
    void OnEvent(std::uint32_t mask, int watch, std::uint32_t cookie, const std::string& name);
    void EndMove();

    IFolderSink& m_sink;
    std::vector<std::filesystem::path> m_roots;
    bool m_network;
    std::uint32_t m_mask;
    Fd m_inotify;
    Fd m_stopEvent;
    std::unordered_map<int, std::unique_ptr<Folder>> m_folders;
    Folder* m_moving = nullptr; // taken out of its parent, until the other half of the move arrives
    std::uint32_t m_movingCookie = 0;
    std::thread m_thread;
};

} // namespace vlt::scan
