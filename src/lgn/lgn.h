// The string library: reference-counted texts whose memory layout is a contract with the token
// library. Not thread-safe: a string and whatever shares its buffer stay on one thread.
#ifndef LGN_LGN_H
#define LGN_LGN_H

#include "lgn/buffer_data.h"
#include "lgn/buffer_mgr.h"
#include "lgn/crt_heap.h"
#include "lgn/exception.h"
#include "lgn/mem_mgr.h"
#include "lgn/simple_buffer.h"
#include "lgn/simple_string.h"
#include "lgn/string_t.h"
#include "lgn/trace.h"

#endif
