#pragma once

namespace testkit {

// For this process and those that it starts; empty: removes the variable.
void SetVariable(const char* name, const char* value);

}  // namespace testkit
