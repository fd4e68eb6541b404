#include "peers/ril_side.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include <android-base/strings.h>
#include <fmt/format.h>

#include "ril_library/ril_wire.h"

using android::base::ErrnoError;
using android::base::Error;

namespace tarvo_emu {

namespace {

// Larger than any request the daemon sends; a packet that does not fit is cut and shown so.
constexpr size_t kMaxPacket = 64 * 1024;

}  // namespace

struct RilSide::Connection {
    android::base::unique_fd fd;
    std::thread reader;
};

RilSide::RilSide(Transcript* transcript) : transcript_(transcript) {}

RilSide::~RilSide() { Stop(); }

android::base::Result<void> RilSide::Listen(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return Error() << "socket path too long: " << path;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);

    android::base::unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (fd == -1) return ErrnoError() << "socket";
    unlink(path.c_str());
    if (bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        return ErrnoError() << "bind " << path;
    }
    if (listen(fd.get(), 4) != 0) return ErrnoError() << "listen " << path;
    listener_ = std::move(fd);
    accept_thread_ = std::thread([this] { AcceptLoop(); });
    return {};
}

void RilSide::Stop() {
    std::vector<std::shared_ptr<Connection>> connections;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) return;
        stopping_ = true;
        connections.swap(connections_);
    }
    answers_.Stop();
    // Shutting a listening socket down ends a blocked accept.
    if (listener_ != -1) shutdown(listener_.get(), SHUT_RDWR);
    if (accept_thread_.joinable()) accept_thread_.join();
    for (const std::shared_ptr<Connection>& connection : connections) {
        shutdown(connection->fd.get(), SHUT_RDWR);
        if (connection->reader.joinable()) connection->reader.join();
    }
}

void RilSide::AcceptLoop() {
    while (true) {
        android::base::unique_fd fd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (fd == -1) {
            if (errno == EINTR) continue;
            return;
        }
        auto connection = std::make_shared<Connection>();
        connection->fd = std::move(fd);
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) return;
        transcript_->Note("ril: client connected");
        connections_.push_back(connection);
        connection->reader = std::thread([this, connection] { Serve(connection); });
    }
}

void RilSide::Serve(std::shared_ptr<Connection> connection) {
    std::string packet(kMaxPacket, '\0');
    while (true) {
        const ssize_t size = recv(connection->fd.get(), packet.data(), packet.size(), 0);
        if (size <= 0) break;
        if (static_cast<size_t>(size) < sizeof(RilWireRequest)) continue;
        RilWireRequest header;
        memcpy(&header, packet.data(), sizeof(header));
        RilRequest request;
        request.request = header.request;
        request.selector = header.selector;
        request.data = packet.substr(sizeof(header), size - sizeof(header));
        transcript_->Ril(Transcript::Direction::kFromDaemon,
                         fmt::format("request: {} selector: {} data: {}", request.request,
                                     request.selector, QuotedBytes(request.data)));
        const RilReplyRule rule = TakeRule(request.request);
        received_.Add(std::move(request));
        if (rule.no_reply) continue;

        answers_.After(rule.delay, [this, connection, header, error = rule.error] {
            Deliver(*connection, header.serial, header.request, error);
        });
    }
    transcript_->Note("ril: client disconnected");
}

void RilSide::SetReply(uint32_t request, RilReplyRule rule) {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_.emplace_back(request, std::move(rule));
}

RilReplyRule RilSide::TakeRule(uint32_t request) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const uint32_t key : {request, kAnyRequest}) {
        // The latest rule that still answers wins.
        for (auto rule = rules_.rbegin(); rule != rules_.rend(); ++rule) {
            std::optional<uint32_t>& count = rule->second.count;
            if (rule->first != key || count == 0u) continue;
            if (count) --*count;
            return rule->second;
        }
    }
    return {};
}

std::optional<RilRequest> RilSide::Await(uint32_t request, const std::optional<std::string>& data,
                                         std::chrono::milliseconds timeout) {
    return received_.Take(
        [&](const RilRequest& sent) {
            return sent.request == request && (!data || sent.data == *data);
        },
        timeout);
}

void RilSide::Deliver(const Connection& connection, uint32_t serial, uint32_t request, int error) {
    transcript_->Ril(Transcript::Direction::kToDaemon,
                     fmt::format("request: {} error: {}", request, error));
    const RilWireAnswer packet = {serial, error};
    send(connection.fd.get(), &packet, sizeof(packet), MSG_NOSIGNAL);
}

}  // namespace tarvo_emu
