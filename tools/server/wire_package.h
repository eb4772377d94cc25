#pragma once

#include <string>

// The package with this body, as it stands on the wire; a damaged one has a wrong checksum.
enum class Checksum { kRight, kWrong };
std::string MakeWirePackage(const std::string& body, Checksum checksum = Checksum::kRight);
