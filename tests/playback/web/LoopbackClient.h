#pragma once
// Plain blocking POSIX sockets for talking to the loopback server from test threads, so the tests
// see exactly the bytes on the wire and need no event loop of their own.
#include <QByteArray>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace quorvane::testing {

class RawConnection {
public:
    explicit RawConnection(quint16 port, int timeoutSeconds = 30, int receiveBuffer = 0)
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
        if (receiveBuffer > 0)
            ::setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        timeval timeout{timeoutSeconds, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        ::setsockopt(m_fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_connected = ::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~RawConnection()
    {
        if (m_fd >= 0) ::close(m_fd);
    }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    bool connected() const { return m_connected; }

    bool send(const QByteArray& bytes)
    {
        qsizetype sent = 0;
        while (sent < bytes.size()) {
            const ssize_t n =
                ::send(m_fd, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            if (n <= 0) return false;
            sent += n;
        }
        return true;
    }

    // Tells the server that nothing more will come (a half close).
    void finishSending() { ::shutdown(m_fd, SHUT_WR); }

    // Up to `max` bytes; empty at the end of the stream, on a reset or on the time-out.
    QByteArray receive(qsizetype max = 65536)
    {
        QByteArray buffer(max, Qt::Uninitialized);
        const ssize_t n = ::recv(m_fd, buffer.data(), size_t(max), 0);
        buffer.resize(n > 0 ? n : 0);
        return buffer;
    }

    // Everything until the server closes the connection.
    QByteArray receiveAll()
    {
        QByteArray all;
        for (QByteArray piece = receive(); !piece.isEmpty(); piece = receive())
            all += piece;
        return all;
    }

private:
    int m_fd = -1;
    bool m_connected = false;
};

struct HttpReply {
    QByteArray head; // up to and including the blank line; empty when nothing was answered
    QByteArray body;
};

inline HttpReply exchange(quint16 port, const QByteArray& request)
{
    RawConnection connection(port);
    connection.send(request);
    const QByteArray all = connection.receiveAll();
    const qsizetype end = all.indexOf("\r\n\r\n");
    if (end < 0) return {all, {}};
    return {all.left(end + 4), all.mid(end + 4)};
}

} // namespace quorvane::testing
