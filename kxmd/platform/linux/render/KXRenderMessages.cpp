#include "kxmd/platform/linux/render/KXRenderMessagesPrivate.h"

#include "kxmd/base/KXStandardFilesPrivate.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/uio.h>

namespace {

constexpr std::size_t mostFiles = 2; // With one message.
constexpr std::size_t longestMessage = 256;

/// Room for the descriptors that go with a message, aligned as their header has to be.
union Ancillary {
    cmsghdr header;
    char bytes[CMSG_SPACE(mostFiles * sizeof(int))];
};

/// Takes what came with a message into our hands, so that it is closed whatever happens. There is
/// room in `files` for all of it.
void takeFilesOf(msghdr& message, std::vector<KXFileDescriptor>& files)
{
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header;
         header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
            continue;
        std::size_t const count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int file;
            std::memcpy(&file, CMSG_DATA(header) + i * sizeof file, sizeof file);
            files.emplace_back(KXAboveStandardFiles(file));
        }
    }
}

}

bool sendRenderMessage(int socket, std::span<std::byte const> bytes, std::span<int const> files)
{
    iovec content { const_cast<std::byte*>(bytes.data()), bytes.size() }; // Only read.
    Ancillary ancillary {};
    msghdr message {};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    if (!files.empty()) {
        message.msg_control = &ancillary;
        message.msg_controllen = CMSG_SPACE(files.size_bytes());
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(files.size_bytes());
        std::memcpy(CMSG_DATA(header), files.data(), files.size_bytes());
    }
    ssize_t sent;
    do
        sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(bytes.size());
}

std::optional<KXRenderMessage> receiveRenderMessage(int socket)
{
    KXRenderMessage received { std::vector<std::byte>(longestMessage), {} };
    received.files.reserve(mostFiles); // Before there are any, which a lack of memory would leak.
    iovec content { received.bytes.data(), received.bytes.size() };
    Ancillary ancillary {};
    msghdr message {};
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = &ancillary;
    message.msg_controllen = sizeof ancillary;
    ssize_t count;
    do
        count = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    while (count < 0 && errno == EINTR);
    if (count <= 0)
        return std::nullopt;
    takeFilesOf(message, received.files);
    received.bytes.resize(static_cast<std::size_t>(count));
    bool const isCut = message.msg_flags & (MSG_TRUNC | MSG_CTRUNC);
    bool const areOpen = std::ranges::all_of(
        received.files, [](KXFileDescriptor const& file) { return file.isOpen(); });
    return isCut || !areOpen ? std::nullopt : std::optional(std::move(received));
}
