/* The public header must serve a C caller as well. */
#include "bcap.h"

uint32_t latency_seen_from_c(uint32_t mode) {
  return bcap_latency_samples_get(mode);
}
