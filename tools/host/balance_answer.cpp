#include "tools/host/balance_answer.h"

#include <cstddef>

namespace {

constexpr std::size_t kLengthBytes = 4;

std::size_t LoadLength(const char* bytes) {
  std::size_t length = 0;
  for (std::size_t i = kLengthBytes; i-- > 0;) {
    length = length << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return length;
}

}  // namespace

std::optional<std::string> AskBalanceServer(CClientDataSource* client, const Endpoint& server,
                                            unsigned char question) {
  std::string host = server.host;
  char* answer = nullptr;
  if (client->GetBalanceServer(host.data(), server.port, static_cast<char>(question), &answer) ==
      0) {
    return {};
  }
  std::string text(answer + kLengthBytes, LoadLength(answer));
  client->FreeBuffer(answer);
  return text;
}
