#ifndef TESTS_LOCALSERVER_H
#define TESTS_LOCALSERVER_H

/* The other end of a connection, in a directory of its own. */

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/* A connected descriptor of the server's. */
class Peer {
public:
    explicit Peer(int descriptor) : descriptor_(descriptor) {}
    Peer(Peer&& other) noexcept;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer();

    void Write(std::string_view bytes) const;
    // Waits for that many bytes; fewer at the end of the stream.
    std::string Read(std::size_t count) const;
    // What was written and not yet read at the other end.
    int Unread() const;
    // Returns when all of that has been read and the next bytes belong to the next chunk.
    void AwaitReading() const;
    void ShutDownWriting() const;
    void Close();

private:
    int descriptor_;
};

class LocalServer {
public:
    explicit LocalServer(int backlog = 16);
    LocalServer(const LocalServer&) = delete;
    LocalServer& operator=(const LocalServer&) = delete;
    ~LocalServer();

    const std::string& Path() const {
        return path_;
    }
    const std::string& Directory() const {
        return directory_;
    }

    Peer Accept() const;
    // Closes the listening socket and leaves its file.
    void StopListening();
    // Connects clients that nobody accepts, until the next one would have to wait.
    void FillBacklog();

private:
    std::string directory_;
    std::string path_;
    int listener_;
    std::vector<Peer> waiting_;
};

#endif
