#include "tracing_host.h"

EXPORT_QUERY(TracingHost)
