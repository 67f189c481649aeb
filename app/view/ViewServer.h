#pragma once
// `lumivane view`: a local web page beside the tool. The server listens on
// 127.0.0.1 only and answers the JSON API (docs/view.md) that its built-in
// page, and any script, drives the tool with.
//
// Every /api/ request must carry the token of the printed address in the
// X-Lumivane-Token header, and every request a Host header naming the address
// it listens on (a page of another site, through DNS rebinding, cannot), else
// 403. One lock is held around each API call, so renders never overlap; a
// change (a value, the frame, a key) cancels the render in flight before it
// waits for the lock, and that render's request is answered 409.
#include "app/view/ViewSession.h"

#include <memory>
#include <mutex>
#include <string>

class ViewHttpServer;

class ViewServer {
public:
    // Starts the session and binds the port; a usage ProgramError when it cannot.
    explicit ViewServer(const ViewOptions& options);
    ~ViewServer();

    int Port() const { return m_port; }
    const std::string& Token() const { return m_token; }
    // http://127.0.0.1:PORT/#TOKEN
    std::string Address() const;
    // Answers requests until Stop, or until an interrupt is requested.
    void Serve();
    void Stop();

private:
    void Routes();

    ViewSession m_session;
    std::unique_ptr<ViewHttpServer> m_server;
    std::mutex m_mutex;
    std::string m_token;
    int m_port = 0;
};

// Prints the address and serves until Ctrl-C; returns the exit status.
int RunView(const ViewOptions& options);

// The page: HTML, CSS and script in one document, made from app/view/page/ at
// build time.
extern const char* const kViewPage;
