#include "waves.h"

#include <algorithm>

namespace waves {

// Not static, and never merged into their callers: each is to be seen in the profile under its own
// name.
[[gnu::noinline]] void stepRow(const Grid& now, Grid& before, std::size_t row);
[[gnu::noinline]] void blurRows(Grid& image, std::size_t radius);
[[gnu::noinline]] void blurColumns(Grid& image, std::size_t radius);
[[gnu::noinline]] void transposeMatrix(const Grid& from, Grid& to);
[[gnu::noinline]] float dotProduct(const float* left, const float* right, std::size_t count);

void stepRow(const Grid& now, Grid& before, std::size_t row) {
  const std::size_t side = now.side;
  const float* const middle = &now.cells[row * side];
  const float* const above = middle - side;
  const float* const below = middle + side;
  float* const out = &before.cells[row * side];
  for (std::size_t column = 1; column + 1 < side; ++column) {
    const float around = middle[column - 1] + middle[column + 1] + above[column] + below[column];
    out[column] = (around * 0.5F - out[column]) * 0.996F;
  }
}

void stepPond(Grid& now, Grid& before) {
  for (std::size_t row = 1; row + 1 < now.side; ++row) {
    stepRow(now, before, row);
  }
  now.cells.swap(before.cells);
}

void blurRows(Grid& image, std::size_t radius) {
  const std::size_t side = image.side;
  std::vector<float> line(side);
  for (std::size_t row = 0; row < side; ++row) {
    float* const cells = &image.cells[row * side];
    for (std::size_t column = 0; column < side; ++column) {
      const std::size_t first = column < radius ? 0 : column - radius;
      const std::size_t last = std::min(side - 1, column + radius);
      float sum = 0.0F;
      for (std::size_t at = first; at <= last; ++at) {
        sum += cells[at];
      }
      line[column] = sum / static_cast<float>(last - first + 1);
    }
    std::copy(line.begin(), line.end(), cells);
  }
}

void blurColumns(Grid& image, std::size_t radius) {
  const std::size_t side = image.side;
  std::vector<float> line(side);
  for (std::size_t column = 0; column < side; ++column) {
    for (std::size_t row = 0; row < side; ++row) {
      const std::size_t first = row < radius ? 0 : row - radius;
      const std::size_t last = std::min(side - 1, row + radius);
      float sum = 0.0F;
      for (std::size_t at = first; at <= last; ++at) {
        sum += image.cells[at * side + column];
      }
      line[row] = sum / static_cast<float>(last - first + 1);
    }
    for (std::size_t row = 0; row < side; ++row) {
      image.cells[row * side + column] = line[row];
    }
  }
}

void blurImage(Grid& image, std::size_t radius) {
  blurRows(image, radius);
  blurColumns(image, radius);
}

void transposeMatrix(const Grid& from, Grid& to) {
  for (std::size_t row = 0; row < from.side; ++row) {
    for (std::size_t column = 0; column < from.side; ++column) {
      to.cells[column * from.side + row] = from.cells[row * from.side + column];
    }
  }
}

float dotProduct(const float* left, const float* right, std::size_t count) {
  float sum = 0.0F;
  for (std::size_t at = 0; at < count; ++at) {
    sum += left[at] * right[at];
  }
  return sum;
}

void multiplyMatrices(const Grid& left, const Grid& right, Grid& product) {
  const std::size_t side = left.side;
  Grid turned(side);
  transposeMatrix(right, turned);
  for (std::size_t row = 0; row < side; ++row) {
    for (std::size_t column = 0; column < side; ++column) {
      product.cells[row * side + column] =
          dotProduct(&left.cells[row * side], &turned.cells[column * side], side);
    }
  }
}

// Last in the file on purpose: a symbol list does not tell where its last function ends, so the hot
// ones stand before it.
void dropStone(Grid& pond, std::size_t row, std::size_t column, float height) {
  pond.cells[(row % pond.side) * pond.side + column % pond.side] -= height;
}

}  // namespace waves
