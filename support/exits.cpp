#include "support/exits.h"
Initializer_exiting::Initializer_exiting() {}
