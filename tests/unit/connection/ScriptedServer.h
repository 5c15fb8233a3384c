#ifndef TESTS_UNIT_CONNECTION_SCRIPTEDSERVER_H
#define TESTS_UNIT_CONNECTION_SCRIPTEDSERVER_H

/* The other end of a channel: a listening local socket whose connections follow scripts. */

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

    // The payload of the next frame; nothing at the end of the stream.
    std::string ReadFrame();
    void Write(std::string_view bytes);
    // Until there is something to read, which stays there.
    void WaitForInput();
    // Until the client closes.
    void WaitForEnd();

private:
    std::string Read(std::size_t count);

    int descriptor_;
};

/* Runs on the server's thread; the connection is closed when it returns. */
using Script = std::function<void(Connection&)>;

/* Serves one connection after the other, each by the next script; then it takes no more. */
class ScriptedServer : NotCopyable {
public:
    ScriptedServer(const std::string& path, std::vector<Script> scripts);
    ~ScriptedServer();

    // Until the scripts are played.
    void Join();

private:
    void Serve(const std::vector<Script>& scripts);

    std::string path_;
    int listener_;
    std::thread thread_;
};

#endif
