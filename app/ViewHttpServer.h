#pragma once
// The live page's HTTP server: httplib's routing and parsing, with connections
// that a client cannot hold on to.
//
// httplib alone gives each connection one of a few threads for as long as the
// client keeps sending, a byte a second if it likes; ten such clients held
// every thread and the page's own requests waited behind them. Here:
//  - at most kWorkers connections are served at once; the rest wait their turn;
//  - a request's head (its request line and headers) must arrive whole within
//    a few seconds of its first byte, and every other wait on the client is
//    bounded by the read, write and keep-alive timeouts;
//  - while connections wait for a worker, a worker still waiting for a head
//    gives its connection up (HTTP 408) a moment later. A request that comes
//    whole, as the page's own do (in one packet), is answered at once; only
//    clients that trickle, or sit idle, make way.
#include <httplib.h>

#include <atomic>
#include <string>

class ViewHttpServer : public httplib::Server {
public:
    ViewHttpServer();

    // Binds `host`:`port` (a free port for 0) with room for a burst of
    // connections to wait for accept; the port, or -1 when it cannot.
    int Bind(const std::string& host, int port);

    // How busy the workers are; shared with the worker pool httplib's accept loop makes.
    struct Load {
        std::atomic<int> queued{0};  // connections accepted, not yet taken by a worker
        std::atomic<int> idle{0};    // workers waiting for a connection
        bool Starved() const { return queued > 0 && idle == 0; }
    };

private:
    // Called by httplib's accept loop, on a worker, for every connection.
    bool process_and_close_socket(socket_t sock) override;

    Load m_load;
};
