// Owning wrapper of one ODBC handle.
#pragma once

#include <utility>

#include "core/odbc_api.h"

namespace scadastore {

class OdbcHandle {
 public:
  OdbcHandle() = default;
  explicit OdbcHandle(SQLSMALLINT type) : type_(type) {}
  OdbcHandle(const OdbcHandle&) = delete;
  OdbcHandle& operator=(const OdbcHandle&) = delete;
  OdbcHandle(OdbcHandle&& other) noexcept
      : type_(other.type_), handle_(std::exchange(other.handle_, nullptr)) {}
  OdbcHandle& operator=(OdbcHandle&& other) noexcept {
    if (this != &other) {
      Free();
      type_ = other.type_;
      handle_ = std::exchange(other.handle_, nullptr);
    }
    return *this;
  }
  ~OdbcHandle() { Free(); }

  // Allocates from `parent` (SQL_NULL_HANDLE for an environment); true on success.
  bool Allocate(SQLHANDLE parent) {
    Free();
    if (!SQL_SUCCEEDED(Odbc().AllocHandle(type_, parent, &handle_))) handle_ = SQL_NULL_HANDLE;
    return handle_ != SQL_NULL_HANDLE;
  }

  // A failed free leaves nothing to retry: the handle is dropped either way.
  void Free() noexcept {
    if (handle_ != SQL_NULL_HANDLE) Odbc().FreeHandle(type_, handle_);
    handle_ = SQL_NULL_HANDLE;
  }

  SQLHANDLE get() const { return handle_; }
  explicit operator bool() const { return handle_ != SQL_NULL_HANDLE; }

 private:
  SQLSMALLINT type_ = SQL_HANDLE_ENV;
  SQLHANDLE handle_ = SQL_NULL_HANDLE;
};

}  // namespace scadastore
