#include "tracing_host.h"

EXPORT_HOST(TracingHost)
