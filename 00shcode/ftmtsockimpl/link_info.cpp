#include "00shcode/ftmtsockimpl/link_info.h"

#include "00shcode/mytoolkit/text.h"

std::string ft::GetLinkName(const FTLinkInfo& link) {
  const char* const address = link.remote_address.c_str();
  if (link.kind == LINK_KIND_OUT)
    return ft::FormatString("%s:P%u", address, unsigned{link.remote_port});
  return ft::FormatString("%s:M%u", address, unsigned{link.local_port});
}

void FTCloseAndDelete::operator()(FTLinkInfo* listener) const {
  FTSockClose(listener->socket);
  delete listener;
}

void FTCloseAndDelete::operator()(FTLinkReq* req) const {
  FTSockClose(req->link.socket);
  delete req;
}
