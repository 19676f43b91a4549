// Lends an image's samples to an operator object of another class for one
// measurement (the operator classes measure the image they are) and takes
// them back on every path, so that no copy of the frame is made.
#pragma once
#include "core/LmrImage.h"

namespace qorimg {

class LentImage {
public:
  LentImage(CLmrImage &borrower, CLmrImage &owner) : borrower_(borrower), owner_(owner) { borrower_.Swap(&owner_); }
  ~LentImage() { borrower_.Swap(&owner_); }
  LentImage(const LentImage &) = delete;
  LentImage &operator=(const LentImage &) = delete;

private:
  CLmrImage &borrower_;
  CLmrImage &owner_;
};

}  // namespace qorimg
