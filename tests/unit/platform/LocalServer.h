#ifndef TESTS_LOCALSERVER_H
#define TESTS_LOCALSERVER_H

/* A server whose socket is in a temporary directory, and its connections. */

#include "support/NotCopyable.h"
#include "support/TemporaryTree.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/* A connection that the server has accepted. */
class Peer {
public:
    explicit Peer(int descriptor) : descriptor_(descriptor) {}
    Peer(Peer&& other) noexcept;
    ~Peer();

    void Write(std::string_view bytes) const;
    // Waits for `count` bytes; returns fewer at the end of the stream.
    std::string Read(std::size_t count) const;
    // The number of bytes written that the client has not read.
    int Unread() const;
    // Returns when the client has read all: the next bytes belong to its next chunk.
    void AwaitReading() const;
    void ShutDownWriting() const;
    void Close();

private:
    int descriptor_;
};

class LocalServer : NotCopyable {
public:
    explicit LocalServer(int backlog = 16);
    ~LocalServer();

    const std::string& Path() const {
        return path_;
    }
    const std::string& Directory() const {
        return tree_.Root();
    }

    Peer Accept() const;
    // Closes the listening socket and leaves its file.
    void StopListening();
    // Connects clients that are not accepted, until another connect() would wait.
    void FillBacklog();

private:
    const TemporaryTree tree_;
    const std::string path_ = tree_.Path("socket");
    int listener_;
    std::vector<Peer> waiting_;
};

#endif
