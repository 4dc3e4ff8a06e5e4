#include "platform/line_server.h"

#include "platform/line_loop.h"

namespace qvcd {

LineServer::LineServer(MakeHandler make_handler, ServerLimits limits)
    : loop_(std::make_shared<LineLoop>(std::move(make_handler), limits))
{
}

LineServer::~LineServer()
{
    if (loop_)
        stop(std::chrono::milliseconds(0));
}

void LineServer::listen(UnixListener listener)
{
    loop_->add({std::move(listener), true, nullptr});
}

void LineServer::listen(Fd tcp_socket, std::shared_ptr<const TlsContext> tls)
{
    UnixListener listener;
    listener.socket = std::move(tcp_socket);
    loop_->add({std::move(listener), false, std::move(tls)});
}

void LineServer::adopt(Fd socket, Peer peer)
{
    loop_->adopt({std::move(socket), std::move(peer)});
}

bool LineServer::start()
{
    return loop_->start();
}

bool LineServer::stop(std::chrono::milliseconds patience)
{
    const bool ended = loop_->stop(patience);
    loop_.reset(); // threads that are left behind hold it too
    return ended;
}

} // namespace qvcd
