#pragma once

#include <cstdint>

namespace ft {

// The wire checksum of count bytes, most significant byte first. The data are summed as signed
// big-endian 32-bit words, the last one filled up with zeros; a sum above 2^32 - 1 is folded by
// adding its upper part to its lower 32 bits, a negative one is not; the result is the complement.
// Zeros behind the data change nothing.
void CalcCheckSum(unsigned char check_sum[4], const void* data, std::int32_t count);

}  // namespace ft
