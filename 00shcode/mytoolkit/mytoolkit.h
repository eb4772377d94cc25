// The toolkit in one include.
#pragma once

#include "00shcode/mytoolkit/buffer.h"
#include "00shcode/mytoolkit/clock.h"
#include "00shcode/mytoolkit/event.h"
#include "00shcode/mytoolkit/lock.h"
#include "00shcode/mytoolkit/locked_value.h"
#include "00shcode/mytoolkit/log.h"
#include "00shcode/mytoolkit/rw_lock.h"
#include "00shcode/mytoolkit/text.h"
#include "00shcode/mytoolkit/thread.h"
