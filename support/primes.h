// Twin-prime table that sizes hash tables: 175 ascending entries from 3 to 4251543449.
#pragma once

extern const unsigned prime_twins[175];
