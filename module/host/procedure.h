// Host procedure framework: the objects every procedure sets up for one command.
#pragma once

#include <string>

#include "host/host_api.h"

class ZORV_HOST_API BpProcedure {
 public:
  // `name`: the procedure's name as shown in the output; `kind`: the host's procedure class.
  BpProcedure(const char* name, int kind);
  ~BpProcedure();
  BpProcedure(const BpProcedure&) = delete;
  BpProcedure& operator=(const BpProcedure&) = delete;
  const std::string& name() const;
  int kind() const { return kind_; }

 private:
  std::string name_;
  int kind_;
};

class ZORV_HOST_API ProcedureDataSource {
 public:
  ProcedureDataSource();
  ~ProcedureDataSource();
  ProcedureDataSource(const ProcedureDataSource&) = delete;
  ProcedureDataSource& operator=(const ProcedureDataSource&) = delete;
};
