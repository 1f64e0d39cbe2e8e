// The capture library's interface is C: this file compiles it as that, alone.
#include "bcap.h"

uint32_t smallest_use_of_the_header(void) {
  const bcap_config_t config = {48000, 512, 0, 600};
  return bcap_query_memory(&config);
}
