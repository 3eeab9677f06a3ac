// The calling process, told apart from a child that a host forked.
#pragma once

namespace scadastore {

unsigned long CurrentProcessId();

}  // namespace scadastore
