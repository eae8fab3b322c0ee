// The runtime's static objects, defined in one place so that they are built in this order
// and torn down in the reverse one: exit lists, signal handlers, memory pool, reporting.
#include "support/alloc.h"
#include "support/exits.h"
#include "support/report.h"

MemPool* vec_mempool = nullptr;

vec<ExitEntry> exitfuns_normal;
vec<ExitEntry> exitfuns_interrupt;
vec<ExitEntry> exitfuns_crash;

static Initializer_exiting Initializer_exiting_instance;
static Initializer_mempool Initializer_mempool_instance;
static Finalizer_mempool Finalizer_mempool_instance;

vec<Redirect> telling;
vec<Redirect> yelling;
vec<Redirect> seeing;
vec<char> broken;
