// The few socket settings that every listener and connection here needs.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <string>

namespace kivosim {

/// Listens, or throws std::runtime_error with address, port and reason. Port 0 picks a free one.
boost::asio::ip::tcp::acceptor Listen(boost::asio::io_context& context, const std::string& address, std::uint16_t port);
/// No delay of small pieces, and not inherited by programs that the process starts.
void PrepareAccepted(boost::asio::ip::tcp::socket& socket);
/// Closes with FIN, also where a forked child still holds the descriptor.
void CloseSocket(boost::asio::ip::tcp::socket& socket);
/// Closes with RST.
void ResetSocket(boost::asio::ip::tcp::socket& socket);

}  // namespace kivosim
