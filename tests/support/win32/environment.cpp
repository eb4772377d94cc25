#include "tests/support/environment.h"

#include <cstdlib>

namespace testkit {

void SetVariable(const char* name, const char* value) {
  _putenv_s(name, value);
}

}  // namespace testkit
