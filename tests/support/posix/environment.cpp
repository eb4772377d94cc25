#include "tests/support/environment.h"

#include <cstdlib>

namespace testkit {

void SetVariable(const char* name, const char* value) {
  if (*value == '\0') {
    unsetenv(name);
  } else {
    setenv(name, value, 1);
  }
}

}  // namespace testkit
