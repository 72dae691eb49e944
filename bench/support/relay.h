#pragma once

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// A TCP relay on loopback that hands everything on after a delay, as a far server would seem; whoever is measured goes
/// through it. It slows nothing down otherwise. Linux.
class Relay {
public:
    /// Listens on a free port. `one_way` is added in each direction, so that a round trip takes twice as long.
    Relay(std::uint16_t server_port, std::chrono::milliseconds one_way) : server_port_(server_port), delay_(one_way) {
        sockaddr_in place = loopback(0);
        ::bind(listener_, reinterpret_cast<sockaddr*>(&place), sizeof place);
        ::listen(listener_, 64);
        socklen_t size = sizeof place;
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&place), &size);
        port_ = ntohs(place.sin_port);
        threads_.emplace_back([this] { accept_all(); });
    }
    /// Ends every connection.
    ~Relay() {
        stopping_ = true;
        for (std::size_t at = 0; at < threads_.size(); ++at) {
            {
                const std::lock_guard guard(lock_);
                ::shutdown(listener_, SHUT_RDWR);
                for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
            }
            threads_[at].join();  // the first one makes no more of them
        }
        for (const int socket : sockets_) ::close(socket);
        ::close(listener_);
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    std::uint16_t port() const { return port_; }

    static sockaddr_in loopback(std::uint16_t port) {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(port);
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return place;
    }

private:
    using Clock = std::chrono::steady_clock;

    /// What one side has sent and the other not yet received; an empty piece is the end.
    struct Pipe {
        std::mutex lock;
        std::condition_variable changed;
        std::deque<std::pair<Clock::time_point, std::string>> pieces;
    };

    void accept_all() {
        for (;;) {
            const int client = ::accept(listener_, nullptr, nullptr);
            if (client < 0 || stopping_) return;
            const int server = ::socket(AF_INET, SOCK_STREAM, 0);
            const sockaddr_in place = loopback(server_port_);
            ::connect(server, reinterpret_cast<const sockaddr*>(&place), sizeof place);
            const int on = 1;
            for (const int socket : {client, server}) ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            const std::lock_guard guard(lock_);
            sockets_.insert(sockets_.end(), {client, server});
            start(client, server, 2 * delay_);
            start(server, client, {});
        }
    }

    /// `first_delay`: what the handshake of a far server takes, before anything is sent.
    void start(int from, int to, std::chrono::milliseconds first_delay) {
        auto pipe = std::make_shared<Pipe>();
        threads_.emplace_back([this, from, pipe, open_at = Clock::now() + first_delay] {
            std::string piece;
            do {
                piece.resize(256 * 1024);
                const ssize_t got = ::recv(from, piece.data(), piece.size(), 0);
                piece.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
                const std::lock_guard guard(pipe->lock);
                pipe->pieces.emplace_back(std::max(Clock::now(), open_at) + delay_, piece);
                pipe->changed.notify_one();
            } while (!piece.empty());
        });
        threads_.emplace_back([pipe, to] {
            for (;;) {
                std::unique_lock guard(pipe->lock);
                pipe->changed.wait(guard, [&] { return !pipe->pieces.empty(); });
                const auto [due, piece] = std::move(pipe->pieces.front());
                pipe->pieces.pop_front();
                guard.unlock();
                std::this_thread::sleep_until(due);
                if (piece.empty()) break;
                for (std::size_t sent = 0; sent < piece.size();) {
                    const ssize_t put = ::send(to, piece.data() + sent, piece.size() - sent, MSG_NOSIGNAL);
                    if (put <= 0) break;
                    sent += static_cast<std::size_t>(put);
                }
            }
            ::shutdown(to, SHUT_WR);
        });
    }

    const std::uint16_t server_port_;
    const std::chrono::milliseconds delay_;
    const int listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    std::uint16_t port_ = 0;
    std::atomic<bool> stopping_{false};
    std::mutex lock_;  // guards what follows
    std::vector<int> sockets_;
    std::deque<std::thread> threads_;
};
