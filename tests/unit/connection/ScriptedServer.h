#ifndef TESTS_UNIT_CONNECTION_SCRIPTEDSERVER_H
#define TESTS_UNIT_CONNECTION_SCRIPTEDSERVER_H

/* The server's end of a channel: a listening local socket; a script handles each connection. */

#include "support/NotCopyable.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/* A connection that the server accepted. */
class Connection {
public:
    explicit Connection(int descriptor) : descriptor_(descriptor) {}

    // Blocks until the next frame and returns its payload; empty at the end of the stream.
    std::string ReadFrame();
    // Sends the bytes in pieces of at most this size.
    void Write(std::string_view bytes, std::size_t pieceSize = 65536);
    // Blocks until there is data, and reads none of it.
    void WaitForInput();
    // Blocks until the client closes.
    void WaitForEnd();

private:
    std::string Read(std::size_t count);

    int descriptor_;
};

/* Runs on the server's thread; the connection is closed when it returns. */
using Script = std::function<void(Connection&)>;

/* Sends the bytes and waits until the client closes. */
Script SendAndWait(std::string bytes, std::size_t pieceSize = 65536);

/* Accepts one connection per script, in order, on its own thread; then closes the socket. */
class ScriptedServer : NotCopyable {
public:
    ScriptedServer(const std::string& path, std::vector<Script> scripts);
    ~ScriptedServer();

    // Blocks until all scripts have returned.
    void Join();

private:
    void RunScripts(const std::vector<Script>& scripts);

    std::string path_;
    int listener_;
    std::thread thread_;
};

#endif
