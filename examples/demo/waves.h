// The demo's shared library: three small workloads whose names are easy to find in a profile. All
// of them work on plain vectors that the caller owns; none keeps state, so threads may call them at
// the same time on different data.
#pragma once

#include <cstddef>
#include <vector>

namespace waves {

// A square of `side` times `side` numbers, row by row.
struct Grid {
  explicit Grid(std::size_t sideLength) : side(sideLength), cells(sideLength * sideLength, 0.0F) {}
  std::size_t side;
  std::vector<float> cells;
};

// Water: moves `now` one step on with the help of the step `before`, which is overwritten and then
// swapped in.
void stepPond(Grid& now, Grid& before);
// Drops a stone of the given height into the pond.
void dropStone(Grid& pond, std::size_t row, std::size_t column, float height);

// Image: blurs in place, first along the rows, then along the columns.
void blurImage(Grid& image, std::size_t radius);

// Matrix: product = left * right, all of one side.
void multiplyMatrices(const Grid& left, const Grid& right, Grid& product);

}  // namespace waves
