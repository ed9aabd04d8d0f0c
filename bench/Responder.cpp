#include "bench/Responder.h"

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/fanotify.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench
{
namespace
{

void HashFile(int file, EVP_MD_CTX* context)
{
    static std::array<unsigned char, 65536> buffer;
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    EVP_DigestInit_ex(context, EVP_sha256(), nullptr);
    for (ssize_t got = 0; (got = read(file, buffer.data(), buffer.size())) > 0;)
        EVP_DigestUpdate(context, buffer.data(), static_cast<std::size_t>(got));
    EVP_DigestFinal_ex(context, digest.data(), nullptr);
}

[[noreturn]] void Answer(int group, Responder::Work work)
{
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    alignas(fanotify_event_metadata) std::array<char, 4096> events;
    for (;;) {
        ssize_t left = read(group, events.data(), events.size());
        auto* event = reinterpret_cast<const fanotify_event_metadata*>(events.data());
        for (; FAN_EVENT_OK(event, left); event = FAN_EVENT_NEXT(event, left)) {
            const bool deny = work == Responder::Work::Deny;
            if (deny || work == Responder::Work::Hash)
                HashFile(event->fd, context);
            const fanotify_response response{event->fd, static_cast<std::uint32_t>(deny ? FAN_DENY : FAN_ALLOW)};
            if (write(group, &response, sizeof response) < 0)
                _exit(1);
            if (work == Responder::Work::Ignore)
                fanotify_mark(group, FAN_MARK_ADD | FAN_MARK_IGNORED_MASK, FAN_OPEN_PERM, event->fd, nullptr);
            close(event->fd);
        }
    }
}

} // namespace

Responder::Responder(const std::filesystem::path& folder, Work work)
{
    const int group = fanotify_init(FAN_CLASS_CONTENT | FAN_CLOEXEC, O_RDONLY | O_CLOEXEC | O_LARGEFILE);
    if (group < 0 ||
        fanotify_mark(group, FAN_MARK_ADD, FAN_OPEN_PERM | FAN_EVENT_ON_CHILD, AT_FDCWD, folder.c_str()) != 0) {
        std::perror("fanotify");
        std::exit(77);
    }
    m_process = fork();
    if (m_process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        Answer(group, work);
    }
    close(group);
}

Responder::~Responder()
{
    kill(m_process, SIGKILL);
    waitpid(m_process, nullptr, 0);
}

} // namespace bench
