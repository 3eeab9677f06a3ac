#include "core/odbc_api.h"

namespace scadastore {
namespace {

OdbcApi& Table() {
  static OdbcApi table;
  return table;
}

}  // namespace

const OdbcApi& Odbc() { return Table(); }

OdbcOverride::OdbcOverride() : saved_(Table()) {}

OdbcOverride::~OdbcOverride() { Table() = saved_; }

OdbcApi* OdbcOverride::operator->() { return &Table(); }

}  // namespace scadastore
