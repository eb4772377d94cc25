#include "tools/common/endpoint.h"

#include <cstdint>
#include <stdexcept>

#include "00shcode/ftmtsockimpl/sock.h"

namespace {

constexpr int kLastPort = 65535;
constexpr int kLastByte = 255;
constexpr char kDigits[] = "0123456789";
constexpr char kNameCharacters[] =
    "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-._";

std::string Quote(const std::string& text) {
  return "'" + text + "'";
}

// The number, or -1 when the text is none from 0 to the largest one. A leading zero is refused:
// systems read it as the sign of an octal number.
int ParseNumber(const std::string& text, int largest) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of(kDigits) != std::string::npos) {
    return -1;
  }
  if (text.size() > 1 && text[0] == '0') return -1;
  const int number = std::stoi(text);
  return number <= largest ? number : -1;
}

bool IsDottedAddress(const std::string& text) {
  std::size_t begin = 0;
  for (int part = 0; part < 4; ++part) {
    const std::size_t end = part < 3 ? text.find('.', begin) : text.size();
    if (end == std::string::npos || ParseNumber(text.substr(begin, end - begin), kLastByte) < 0) {
      return false;
    }
    begin = end + 1;
  }
  return true;
}

std::string FindFault(const std::string& text, int least_port) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos) return Quote(text) + " has no port: write HOST:PORT";
  const std::string host = text.substr(0, colon);
  if (host.empty()) return Quote(text) + " has no host: write HOST:PORT";
  if (host.find_first_not_of(kNameCharacters) != std::string::npos) {
    return Quote(host) + " is neither a host name nor a dotted IPv4 address";
  }
  if (ParseNumber(text.substr(colon + 1), kLastPort) < least_port) {
    return Quote(text.substr(colon + 1)) + " is not a port: write " + std::to_string(least_port) +
           " to 65535 without leading zeros";
  }
  return {};
}

std::string FindDottedFault(const std::string& text, int least_port) {
  const std::string fault = FindFault(text, least_port);
  return fault.empty() ? FindAddressFault(text.substr(0, text.rfind(':'))) : fault;
}

}  // namespace

std::string FindAddressFault(const std::string& text) {
  if (IsDottedAddress(text)) return {};
  return Quote(text) + " is not a dotted IPv4 address such as 127.0.0.1";
}

std::string FindEndpointFault(const std::string& text) {
  return FindFault(text, 1);
}

std::string FindDottedEndpointFault(const std::string& text) {
  return FindDottedFault(text, 1);
}

std::string FindLocalEndpointFault(const std::string& text) {
  return FindDottedFault(text, 0);
}

Endpoint ParseEndpoint(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  return {text.substr(0, colon), ParseNumber(text.substr(colon + 1), kLastPort)};
}

Endpoint ResolveEndpoint(const Endpoint& endpoint) {
  FTSockStartup();
  FTSockAddr address{};
  if (!platform::LookUpHost(endpoint.host.c_str(), &address.address)) {
    throw std::runtime_error("unknown host '" + endpoint.host + "'");
  }
  Endpoint resolved = endpoint;
  FTSockAddrToStr(&address, nullptr, &resolved.host, nullptr);
  return resolved;
}

std::string ShowEndpoint(const Endpoint& endpoint) {
  return endpoint.host + ":" + std::to_string(endpoint.port);
}
