// Compiled by the include-wall test with PROBE_HEADER naming the header a host file tries to include.
#include PROBE_HEADER
