// The ODBC API headers. Windows' own ODBC headers rely on the types of
// <windows.h>, which must come first.
#pragma once

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#undef TEXT  // a plain name elsewhere
#endif

#include <sql.h>
#include <sqlext.h>
