#include "share/PgConnection.hpp"

// Filled in with the connection's implementation.
