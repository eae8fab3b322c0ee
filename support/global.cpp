// The runtime's static objects, defined in one place so that they are built in this order
// and torn down in the reverse one: exit lists, signal handlers, memory pool, reporting.
// They are built before the statics of every other file and torn down after them, so the
// pool outlives every vec that other files keep.
#define RUNTIME __attribute__((init_priority(101)))
#include "support/alloc.h"
#include "support/exits.h"
#include "support/report.h"

MemPool* vec_mempool = nullptr;

vec<ExitEntry> exitfuns_normal RUNTIME;
vec<ExitEntry> exitfuns_interrupt RUNTIME;
vec<ExitEntry> exitfuns_crash RUNTIME;

static Initializer_exiting Initializer_exiting_instance RUNTIME;
static Initializer_mempool Initializer_mempool_instance RUNTIME;
static Finalizer_mempool Finalizer_mempool_instance RUNTIME;

vec<Redirect> telling RUNTIME;
vec<Redirect> yelling RUNTIME;
vec<Redirect> seeing RUNTIME;
vec<char> broken RUNTIME;
