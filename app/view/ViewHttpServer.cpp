#include "app/view/ViewHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Millis = std::chrono::milliseconds;

// A browser opens six connections to a site; the rest is room for scripts.
constexpr int kWorkers = 16;
constexpr int kReadSeconds = 5;
constexpr int kWriteSeconds = 5;
constexpr int kKeepAliveSeconds = 5;
constexpr int kRequestsPerConnection = 100;
// From a request's first byte to the blank line after its headers.
constexpr auto kHeadTime = std::chrono::seconds(5);
// How long a worker waits for a head before making way for a waiting connection.
constexpr auto kMakeWayAfter = Millis(100);
// How often a wait looks up from the socket: at the load, at a stop.
constexpr auto kSlice = Millis(50);
// httplib takes request lines and header lines of up to 8 KiB each.
constexpr std::size_t kMaxHead = 32 * 1024;
constexpr const char* kHeadEnd = "\r\n\r\n";

// poll for `events` up to `timeout`; its answer, interrupted waits resumed.
int Wait(int sock, short events, Clock::duration timeout)
{
    const auto until = Clock::now() + timeout;
    for (;;) {
        pollfd p{sock, events, 0};
        const auto left = std::chrono::duration_cast<Millis>(until - Clock::now()).count();
        const int ready = ::poll(&p, 1, static_cast<int>(std::max<long long>(left, 0)));
        if (ready >= 0 || errno != EINTR) return ready;
    }
}

Clock::duration Timeout(time_t sec, time_t usec)
{
    return std::chrono::seconds(sec) + std::chrono::microseconds(usec);
}

// httplib's TaskQueue: a fixed set of workers taking connections in the order accepted.
class Workers : public httplib::TaskQueue {
public:
    Workers(int count, ViewHttpServer::Load& load) : m_load(load)
    {
        for (int i = 0; i < count; ++i) m_threads.emplace_back([this] { Work(); });
    }
    void enqueue(std::function<void()> job) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_jobs.push_back(std::move(job));
            ++m_load.queued;
        }
        m_wake.notify_one();
    }
    // Runs what is queued, then ends the workers.
    void shutdown() override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stopping = true;
        }
        m_wake.notify_all();
        for (std::thread& t : m_threads) t.join();
    }

private:
    void Work()
    {
        for (;;) {
            std::function<void()> job;
            {
                std::unique_lock<std::mutex> lock(m_mutex);
                ++m_load.idle;
                m_wake.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
                --m_load.idle;
                if (m_jobs.empty()) return;
                job = std::move(m_jobs.front());
                m_jobs.pop_front();
                --m_load.queued;
            }
            job();
        }
    }

    ViewHttpServer::Load& m_load;
    std::vector<std::thread> m_threads;
    std::deque<std::function<void()>> m_jobs;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopping = false;
};

void AddressOf(int (*name)(int, sockaddr*, socklen_t*), int sock, std::string& ip, int& port)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    ip.clear();
    port = 0;
    if (name(sock, reinterpret_cast<sockaddr*>(&address), &length) != 0) return;
    char text[INET6_ADDRSTRLEN] = "";
    if (address.ss_family == AF_INET) {
        const auto& a = reinterpret_cast<const sockaddr_in&>(address);
        ::inet_ntop(AF_INET, &a.sin_addr, text, sizeof text);
        port = ntohs(a.sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto& a = reinterpret_cast<const sockaddr_in6&>(address);
        ::inet_ntop(AF_INET6, &a.sin6_addr, text, sizeof text);
        port = ntohs(a.sin6_port);
    }
    ip = text;
}

// One client's connection as httplib reads and writes it: the request head is
// gathered here first, every wait after that is bounded, and nothing blocks
// past a timeout.
class Connection : public httplib::Stream {
public:
    enum class Head { Whole, Gone, TooSlow, TooLarge };

    Connection(int sock, Clock::duration readTimeout, Clock::duration writeTimeout)
        : m_sock(sock), m_readTimeout(readTimeout), m_writeTimeout(writeTimeout)
    {
    }

    // Reads until a whole request head is buffered. Gone when the client
    // closes, sends nothing within `idle`, or `makeWay(waited)` says so
    // before it has sent anything; TooSlow when it has begun a head it does
    // not finish within kHeadTime, or when makeWay says so after it has.
    template <class MakeWay>
    Head GatherHead(Clock::duration idle, MakeWay makeWay)
    {
        m_in.erase(0, m_next);
        m_next = 0;
        const auto start = Clock::now();
        auto deadline = start + (m_in.empty() ? idle : kHeadTime);
        for (;;) {
            if (m_in.find(kHeadEnd) != std::string::npos) return Head::Whole;
            if (m_in.size() > kMaxHead) return Head::TooLarge;
            const auto now = Clock::now();
            if (now >= deadline || makeWay(now - start)) return m_in.empty() ? Head::Gone : Head::TooSlow;
            const int ready = Wait(m_sock, POLLIN, std::min<Clock::duration>(kSlice, deadline - now));
            if (ready < 0) return Head::Gone;
            if (ready == 0) continue;
            char chunk[4096];
            const ssize_t n = ::recv(m_sock, chunk, sizeof chunk, MSG_DONTWAIT);
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) continue;
            if (n <= 0) return Head::Gone;
            if (m_in.empty()) deadline = Clock::now() + kHeadTime;
            m_in.append(chunk, static_cast<std::size_t>(n));
        }
    }

    // A last answer before closing, sent only if the socket takes it at once.
    void Refuse(const char* status, const std::string& message)
    {
        const std::string body = "{\"error\":\"" + message + "\"}";
        const std::string reply = std::string("HTTP/1.1 ") + status +
                                  "\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
                                  std::to_string(body.size()) + "\r\n\r\n" + body;
        [[maybe_unused]] const ssize_t sent = ::send(m_sock, reply.data(), reply.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    bool is_readable() const override { return m_next < m_in.size() || Wait(m_sock, POLLIN, m_readTimeout) > 0; }
    bool is_writable() const override { return Wait(m_sock, POLLOUT, m_writeTimeout) > 0; }

    ssize_t read(char* ptr, size_t size) override
    {
        if (m_next < m_in.size()) {
            const std::size_t n = std::min(size, m_in.size() - m_next);
            std::memcpy(ptr, m_in.data() + m_next, n);
            m_next += n;
            return static_cast<ssize_t>(n);
        }
        for (;;) {
            if (!is_readable()) return -1;
            const ssize_t n = ::recv(m_sock, ptr, size, MSG_DONTWAIT);
            if (n >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) return n;
        }
    }

    ssize_t write(const char* ptr, size_t size) override
    {
        for (;;) {
            if (!is_writable()) return -1;
            const ssize_t n = ::send(m_sock, ptr, size, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) return n;
        }
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override { AddressOf(::getpeername, m_sock, ip, port); }
    void get_local_ip_and_port(std::string& ip, int& port) const override { AddressOf(::getsockname, m_sock, ip, port); }
    socket_t socket() const override { return m_sock; }

private:
    int m_sock;
    Clock::duration m_readTimeout, m_writeTimeout;
    std::string m_in;         // bytes read ahead: the head, and what followed it in the same packets
    std::size_t m_next = 0;  // the first of them httplib has not read
};

}  // namespace

ViewHttpServer::ViewHttpServer()
{
    new_task_queue = [this] { return new Workers(kWorkers, m_load); };
    set_read_timeout(kReadSeconds);
    set_write_timeout(kWriteSeconds);
    set_keep_alive_timeout(kKeepAliveSeconds);
    set_keep_alive_max_count(kRequestsPerConnection);
    // An answer goes out as its head, then its body: without this the body of a
    // small answer waits for the browser's delayed acknowledgement of the head,
    // 40 ms on Linux, twice for each value a dragged slider sends.
    set_tcp_nodelay(true);
}

int ViewHttpServer::Bind(const std::string& host, int port)
{
    const int bound = port == 0 ? bind_to_any_port(host) : bind_to_port(host, port) ? port : -1;
    // httplib listens with a backlog of 5: a sixth client connecting at once
    // would have its connection retried a second later, then two.
    if (bound > 0) ::listen(svr_sock_, SOMAXCONN);
    return bound;
}

bool ViewHttpServer::process_and_close_socket(socket_t sock)
{
    Connection connection(sock, Timeout(read_timeout_sec_, read_timeout_usec_),
                          Timeout(write_timeout_sec_, write_timeout_usec_));
    const auto makeWay = [this](Clock::duration waited) {
        return svr_sock_ == INVALID_SOCKET || (waited >= kMakeWayAfter && m_load.Starved());
    };
    bool ok = false;
    for (std::size_t served = 0; served < keep_alive_max_count_; ++served) {
        // The first request may take the read timeout to start; later ones the keep-alive timeout.
        const auto idle = served == 0 ? Timeout(read_timeout_sec_, read_timeout_usec_)
                                      : std::chrono::seconds(keep_alive_timeout_sec_);
        const Connection::Head head = connection.GatherHead(idle, makeWay);
        if (head == Connection::Head::TooSlow)
            connection.Refuse("408 Request Timeout", "the request did not arrive whole in time");
        if (head == Connection::Head::TooLarge)
            connection.Refuse("431 Request Header Fields Too Large", "the request's headers are too large");
        if (head != Connection::Head::Whole) break;
        bool closed = false;
        ok = process_request(connection, served + 1 == keep_alive_max_count_, closed, nullptr);
        if (!ok || closed) break;
    }
    ::shutdown(sock, SHUT_RDWR);
    ::close(sock);
    return ok;
}
