// Host string tables: localised texts of a procedure.
#pragma once

#include <memory>
#include <string>

#include "host/host_api.h"

class ZORV_HOST_API FacSTDictionary {
 public:
  // `installFolder`: the host installation folder (path kind 3) under which the tables lie.
  explicit FacSTDictionary(const std::string& installFolder);
  ~FacSTDictionary();
  FacSTDictionary(const FacSTDictionary&) = delete;
  FacSTDictionary& operator=(const FacSTDictionary&) = delete;

  // Selects the procedure whose table is used by LookUp.
  void SetProcedure(const char* procedure);
  // Loads the host's global table (texts shared by all procedures) from `installFolder`.
  void SetGlobalStringTable(const std::string& installFolder);
  // The text of `key` in the host's current language; the key itself when no table has it.
  std::string LookUp(const std::string& key) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
