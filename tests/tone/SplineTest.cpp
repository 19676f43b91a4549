// CSpline: refusals, status codes, segment types and the index quirks. The
// cubic coefficients are cross-checked against scipy in ToneReferenceTest.
#include <array>
#include <stdexcept>
#include <gtest/gtest.h>
#include "tone/Spline.h"

namespace {

CSpline Through(std::initializer_list<std::array<double, 2>> points, std::uint64_t type = 1) {
  CSpline s;
  for (const auto &p : points) EXPECT_GE(s.SetPoint(p[0], p[1], type), 0);
  return s;
}

TEST(Spline, NaturalCubicPassesThroughItsPointsWithZeroEndCurvature) {
  CSpline s = Through({{0, 0}, {1, 2}, {3, 1}, {4, 3}, {7, 0}});
  ASSERT_EQ(CSpline::CalcSpline(&s), 1);
  EXPECT_EQ(s[0].dM, 0.0);
  EXPECT_EQ(s[4].dM, 0.0);
  int status = 9;
  for (int i = 1; i < 5; ++i) {
    // Each segment ends on its right point, and the slopes join.
    const double x = s[i].dX, h = 1e-6;
    EXPECT_NEAR(CSpline::GetValue(x - 1e-12, &s, &status), s[i].dY, 1e-9) << i;
    if (i < 4) {
      const double left = (CSpline::GetValue(x - h, &s, &status) - CSpline::GetValue(x - 2 * h, &s, &status)) / h;
      const double right = (CSpline::GetValue(x + 2 * h, &s, &status) - CSpline::GetValue(x + h, &s, &status)) / h;
      EXPECT_NEAR(left, right, 1e-4) << i;
    }
  }
  EXPECT_EQ(CSpline::GetValue(3.0, &s, &status), 1.0);  // a point hit exactly
  EXPECT_EQ(status, 1);
  EXPECT_EQ(CSpline::GetValue(7.0, &s, &status), 0.0);  // the gap at the last point
  EXPECT_EQ(status, 0);
  CSpline::GetValue(-1, &s, &status);
  EXPECT_EQ(status, -2);
  CSpline::GetValue(7.5, &s, &status);
  EXPECT_EQ(status, -1);
}

TEST(Spline, RefusalsTwoPointLineAndSegmentTypes) {
  CSpline two = Through({{0, 1}, {2, 5}});
  EXPECT_EQ(CSpline::CalcSpline(&two), 0);
  EXPECT_EQ(CSpline::CalcSpline(nullptr), 0);
  int status = 9;
  EXPECT_EQ(two.GetValue(0.5, &status), 2.0);
  EXPECT_EQ(status, 1);
  EXPECT_EQ(CSpline::GetValue(1.0, nullptr, &status), 0.0);
  EXPECT_EQ(status, 0);

  for (std::uint64_t type : {0u, 2u, 3u, 9u}) {
    CSpline s = Through({{0, 0}, {2, 4}, {4, 2}}, type);
    const double want[] = {3.0, 0.0, 4.0, 2.0};  // at x = 3: line, -, held left, held right; unknown 0
    EXPECT_EQ(CSpline::GetValue(3.0, &s, &status), type > 3 ? 0.0 : want[type]) << type;
    EXPECT_EQ(status, type > 3 ? 0 : 1);
  }
  // Neighbours out of order are refused; equal ones are not.
  CSpline s = Through({{0, 0}, {2, 4}, {4, 2}});
  s[1].dX = 5;
  EXPECT_EQ(CSpline::CalcSpline(&s), 0);
  s[1].dX = 4;
  EXPECT_EQ(CSpline::CalcSpline(&s), 1);
}

// The member form evaluates the segment after the one holding x with a
// negative offset, and has no segment for x in the last one.
TEST(Spline, MemberValueUsesTheNextSegmentAndRecomputesWhenDirty) {
  CSpline s = Through({{0, 0}, {1, 2}, {3, 1}, {4, 3}}, 0);
  int status = 9;
  // x = 0.5 lies in segment 0..1; the member takes segment 1..3, a line.
  EXPECT_DOUBLE_EQ(s.GetValue(0.5, &status), (0.5 - 1) / 2 * (1 - 2) + 2);
  EXPECT_EQ(status, 1);
  s.GetValue(3.5, &status);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(s.SetPoint(5, 0, 0), 4);  // dirty again; recomputed on the next call
  EXPECT_DOUBLE_EQ(s.GetValue(3.5, &status), (3.5 - 4) / 1 * (0 - 3) + 3);  // segment 4..5
}

TEST(Spline, SetPointInsertsBeforeTheLeftNeighbourAndIndexTestsAreReversed) {
  CSpline s = Through({{0, 0}, {10, 1}, {20, 2}});
  EXPECT_EQ(s.SetPoint(10, 5, 1), -1);
  EXPECT_EQ(s.SetPoint(15, 5, 1), 1);  // lands before point 1 (x = 10)
  EXPECT_EQ(s[1].dX, 15.0);
  EXPECT_EQ(CSpline::CalcSpline(&s), 0);  // now out of order
  EXPECT_EQ(s.SetPoint(-5, 0, 1), 0);
  EXPECT_EQ(s.SetPoint(30, 0, 1), 5);

  tagSplinePoint p{};
  EXPECT_EQ(s.GetPoint(2, &p), 0);
  EXPECT_EQ(s.GetPoint(6, &p), 0);
  EXPECT_EQ(s.GetPoint(7, nullptr), 0);
  EXPECT_THROW(s.GetPoint(7, &p), std::out_of_range);
  EXPECT_EQ(s.RemoveAtPoint(-1, 1), 0);
  EXPECT_EQ(s.RemoveAtPoint(3, 1), 0);
  EXPECT_THROW(s.RemoveAtPoint(7, 1), std::out_of_range);
  EXPECT_EQ(s.GetSize(), 6);
  s.RemoveAllPoint();
  EXPECT_EQ(s.GetSize(), 0);
  EXPECT_EQ(s.SetPoint(tagSplinePoint{1, 2, 1, 9, 9, 9, 9}), 0);
  EXPECT_EQ(s[0].dM + s[0].dB + s[0].dC + s[0].dD, 0.0);  // coefficients cleared
}

}  // namespace
