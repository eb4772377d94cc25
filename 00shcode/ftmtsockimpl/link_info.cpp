#include "00shcode/ftmtsockimpl/link_info.h"

#include "00shcode/mytoolkit/text.h"

std::string GetLinkName(const FTLinkInfo& link) {
  const char* const address = link.remote_address.c_str();
  if (link.kind == LINK_KIND_OUT)
    return FormatString("%s:P%u", address, unsigned{link.remote_port});
  return FormatString("%s:M%u", address, unsigned{link.local_port});
}

void CloseSocketOf(FTLinkInfo* link) {
  FTSockClose(link->socket);
  link->socket = kNoSocket;
}
