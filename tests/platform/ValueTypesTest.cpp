#include <climits>
#include <stdexcept>

#include <gtest/gtest.h>

#include "platform/Array.h"
#include "platform/Exceptions.h"
#include "platform/Geometry.h"

namespace {

TEST(CRect, EmptyNullNormalizeIntersect) {
  EXPECT_TRUE(CRect(9, 0, 2, 4).IsRectEmpty());  // inverted: empty, not null
  EXPECT_FALSE(CRect(9, 0, 2, 4).IsRectNull());
  const CRect r(2, 3, 6, 8);
  EXPECT_TRUE(r.PtInRect({5, 7}));
  EXPECT_FALSE(r.PtInRect({6, 7}) || r.PtInRect({5, 8}));  // right and bottom edges excluded
  CRect inverted(9, 8, 2, 1);
  inverted.NormalizeRect();
  EXPECT_EQ(inverted, CRect(2, 1, 9, 8));
  CRect out;
  EXPECT_TRUE(out.IntersectRect(CRect(0, 0, 10, 10), CRect(5, -3, 20, 4)));
  EXPECT_EQ(out, CRect(5, 0, 10, 4));
  EXPECT_FALSE(out.IntersectRect(CRect(0, 0, 10, 10), CRect(10, 0, 20, 10)));  // touching only
  EXPECT_TRUE(out.IsRectNull());
}

// Sizes and middles of rectangles that span more than an int are worked out in
// 64 bits and saturated to the int range: no overflow.
TEST(CRect, ArithmeticSaturatesInsteadOfOverflowing) {
  EXPECT_EQ(CRect(INT_MIN, 0, INT_MAX, 1).Width(), INT_MAX);
  EXPECT_EQ(CRect(0, INT_MAX, 8, INT_MIN).Height(), INT_MIN);
  EXPECT_EQ(CRect(INT_MAX - 1, INT_MAX - 3, INT_MAX, INT_MAX).CenterPoint(), CPoint(INT_MAX - 1, INT_MAX - 2));
  EXPECT_EQ(CRect(CPoint(INT_MAX - 1, 0), CSize(5, 5)).right, INT_MAX);
  CRect r(0, 0, 1, 1);
  r.OffsetRect(INT_MAX, INT_MIN);
  EXPECT_EQ(r, CRect(INT_MAX, INT_MIN, INT_MAX, INT_MIN + 1));
  r.InflateRect(INT_MAX, 1);
  EXPECT_EQ(r, CRect(0, INT_MIN, INT_MAX, INT_MIN + 2));
  EXPECT_EQ(CPoint(INT_MAX, INT_MIN) + CPoint(1, -1), CPoint(INT_MAX, INT_MIN));
}

TEST(CArray, IndexOutOfRangeThrowsAndChangesNothing) {
  CArray<int> a;
  a.Add(1);
  a.Add(3);
  a.InsertAt(1, 2);
  a.InsertAt(3, 9, 2);
  a.RemoveAt(3);
  ASSERT_EQ(a.GetSize(), 4);
  EXPECT_EQ(a[1] * 100 + a[3], 209);
  EXPECT_THROW(a.ElementAt(-1), std::out_of_range);
  EXPECT_THROW(a.InsertAt(5, 0), std::out_of_range);
  EXPECT_THROW(a.RemoveAt(3, 2), std::out_of_range);
  EXPECT_EQ(a.GetSize(), 4);
}

int destroyed = 0;
struct CountedException : CException {
  ~CountedException() override { ++destroyed; }
};

// The sanitiser build would flag a free of the static memory exception.
TEST(CException, DeleteFreesOnlyAutoDeletingObjects) {
  (new CountedException)->Delete();
  EXPECT_EQ(destroyed, 1);
  CMemoryException *caught[2] = {};
  for (CMemoryException *&slot : caught) {
    try {
      AfxThrowMemoryException();
    } catch (CMemoryException *e) {
      slot = e;
      e->Delete();
    }
  }
  ASSERT_NE(caught[0], nullptr);
  EXPECT_EQ(caught[0], caught[1]);
}

}  // namespace
