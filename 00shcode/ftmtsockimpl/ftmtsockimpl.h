// The socket engine in one include.
#pragma once

#include "00shcode/ftmtsockimpl/engine.h"
#include "00shcode/ftmtsockimpl/engine_msgs.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/ftmtsockimpl/sock.h"
