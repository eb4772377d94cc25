#include "tests/support/test_protocol.h"

#include "00shcode/ftmtsockimpl/engine.h"

namespace testkit {

static CFTMtSockImpl& EngineOf(CFTBaseSockIf& protocol);

// The engine is nobody's business but its owner's. Naming a private member is allowed in the
// arguments of an explicit instantiation, and there alone.
template <std::unique_ptr<CFTMtSockImpl> const CFTBaseSockIf::*kEngine>
struct EngineAccess {
  friend CFTMtSockImpl& EngineOf(CFTBaseSockIf& protocol) { return *(protocol.*kEngine); }
};
template struct EngineAccess<&CFTBaseSockIf::m_engine>;

FTEngineState& StateOf(CFTBaseSockIf& protocol) {
  return EngineOf(protocol).State();
}

}  // namespace testkit
