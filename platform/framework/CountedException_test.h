// A framework exception that counts its destructions, so a test can see whether an exception was
// freed (Delete on a heap one) or left alone (one that does not delete itself).
#pragma once

#include "n7utility/platform/framework/Exceptions.h"

class CountedException : public CException {
 public:
  explicit CountedException(BOOL auto_delete, int* destroyed)
      : CException(auto_delete), destroyed_(destroyed) {}
  ~CountedException() override { ++*destroyed_; }

 private:
  int* destroyed_;
};
