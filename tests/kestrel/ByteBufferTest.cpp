#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/ByteBuffer.h"
#include "kestrel/ByteBufferViewport.h"

namespace {

using kestrel::ByteBuffer;
using kestrel::ByteBufferViewport;

const unsigned char LETTERS[] = "abcdefghij";  // ten letters and a NUL

std::string text(const ByteBufferViewport& bytes) {
  return bytes.size() == 0 ? std::string()
                           : std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

// Capacity and size, or what is in use instead of its size.
using Sizes = std::pair<unsigned, unsigned>;
Sizes sizesOf(const ByteBufferViewport& bytes) { return {bytes.capacity(), bytes.size()}; }
using Content = std::pair<unsigned, std::string>;
Content contentOf(const ByteBufferViewport& bytes) { return {bytes.capacity(), text(bytes)}; }

// The whole reserved area, in use or not.
std::string storage(const ByteBuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.data()), buffer.capacity());
}

ByteBuffer lettersIn(unsigned int capacity, unsigned int size) {
  return ByteBuffer(LETTERS, capacity, size);
}

template <typename Exception, typename Action>
std::string messageOf(Action action) {
  try {
    action();
  } catch (const Exception& error) {
    return error.what();
  }
  return "nothing was thrown";
}

TEST(ByteBufferViewportTest, DefaultShowsNothing) {
  const ByteBufferViewport view;
  EXPECT_EQ(view.data(), nullptr);
  EXPECT_EQ(sizesOf(view), Sizes(0U, 0U));
}

TEST(ByteBufferViewportTest, ConstructorKeepsPointerCapacityAndSize) {
  unsigned char bytes[10] = {};
  const ByteBufferViewport view(bytes, 10, 4);
  EXPECT_EQ(view.data(), bytes);
  EXPECT_EQ(sizesOf(view), Sizes(10U, 4U));
}

TEST(ByteBufferViewportTest, ConstructorClampsATooLargeSize) {
  unsigned char bytes[10] = {};
  EXPECT_EQ(ByteBufferViewport(bytes, 10, 10).size(), 10U);
  EXPECT_EQ(ByteBufferViewport(bytes, 10, 11).size(), 10U);
  EXPECT_EQ(ByteBufferViewport(bytes, 10, 0xFFFFFFFFU).size(), 10U);
}

TEST(ByteBufferViewportTest, InitializeOfTwentyInTenClampsTheSize) {
  unsigned char bytes[10] = {};
  ByteBufferViewport view;
  view.initialize(bytes, 10, 20);
  EXPECT_EQ(view.data(), bytes);
  EXPECT_EQ(sizesOf(view), Sizes(10U, 10U));
  view.initialize(bytes + 1, 9, 3);
  EXPECT_EQ(view.data(), bytes + 1);
  EXPECT_EQ(sizesOf(view), Sizes(9U, 3U));
}

TEST(ByteBufferViewportTest, CopiesShowTheSameBytes) {
  unsigned char bytes[10] = {};
  const ByteBufferViewport view(bytes, 10, 4);
  const ByteBufferViewport copy(view);
  EXPECT_EQ(copy.data(), bytes);
  EXPECT_EQ(sizesOf(copy), Sizes(10U, 4U));

  ByteBufferViewport assigned;
  EXPECT_EQ(&(assigned = view), &assigned);
  EXPECT_EQ(assigned.data(), bytes);
  EXPECT_EQ(sizesOf(assigned), Sizes(10U, 4U));

  const ByteBufferViewport& itself = assigned;
  assigned = itself;
  EXPECT_EQ(assigned.data(), bytes);
  EXPECT_EQ(sizesOf(assigned), Sizes(10U, 4U));
}

TEST(ByteBufferViewportTest, SizeUpToTheCapacitySucceeds) {
  unsigned char bytes[10] = {};
  ByteBufferViewport view(bytes, 10, 4);
  view.size(10);
  EXPECT_EQ(view.size(), 10U);
  view.size(0);
  EXPECT_EQ(view.size(), 0U);
}

TEST(ByteBufferViewportTest, SizeBeyondTheCapacityThrowsAndChangesNothing) {
  unsigned char bytes[10] = {};
  ByteBufferViewport view(bytes, 10, 4);
  EXPECT_EQ(messageOf<std::length_error>([&view] { view.size(11); }),
            "Used size may not exceed reserved capacity");
  EXPECT_EQ(view.size(), 4U);
  EXPECT_EQ(view.capacity(), 10U);
  EXPECT_EQ(view.data(), bytes);
}

TEST(ByteBufferViewportTest, AtReachesTheLastUsedByteAndNoFurther) {
  unsigned char bytes[] = {1, 2, 3, 4};
  ByteBufferViewport view(bytes, 4, 3);
  EXPECT_EQ(view.at(0), bytes);
  EXPECT_EQ(*view.at(2), 3);
  EXPECT_EQ(messageOf<std::out_of_range>([&view] { view.at(3); }),
            "Index may not be greater than used size");
  EXPECT_THROW(view.at(0xFFFFFFFFU), std::out_of_range);
  *view.at(2) = 9;
  EXPECT_EQ(bytes[2], 9);
}

TEST(ByteBufferViewportTest, ConstantAtBehavesTheSame) {
  unsigned char bytes[] = {1, 2, 3, 4};
  const ByteBufferViewport view(bytes, 4, 3);
  static_assert(std::is_same_v<decltype(view.at(0)), const unsigned char*>);
  EXPECT_EQ(view.at(2), bytes + 2);
  EXPECT_EQ(messageOf<std::out_of_range>([&view] { view.at(3); }),
            "Index may not be greater than used size");
}

TEST(ByteBufferViewportTest, AtOnAnEmptyViewThrows) {
  ByteBufferViewport view;
  EXPECT_THROW(view.at(0), std::out_of_range);
  unsigned char bytes[4] = {};
  view.initialize(bytes, 4, 0);
  EXPECT_THROW(view.at(0), std::out_of_range);
}

TEST(ByteBufferTest, DefaultIsEmpty) {
  const ByteBuffer buffer;
  EXPECT_EQ(buffer.data(), nullptr);
  EXPECT_EQ(sizesOf(buffer), Sizes(0U, 0U));
}

TEST(ByteBufferTest, ConstructorCopiesIntoStorageOfTheCapacity) {
  const ByteBuffer buffer(LETTERS, 8, 3);
  EXPECT_NE(buffer.data(), LETTERS);
  EXPECT_EQ(sizesOf(buffer), Sizes(8U, 3U));
  EXPECT_EQ(storage(buffer), std::string("abc\0\0\0\0\0", 8));
}

TEST(ByteBufferTest, ConstructorClampsTheSizeToTheCapacity) {
  const ByteBuffer buffer(LETTERS, 4, 10);
  EXPECT_EQ(contentOf(buffer), Content(4U, "abcd"));
}

TEST(ByteBufferTest, CopyingInitializeReplacesTheContents) {
  ByteBuffer buffer = lettersIn(10, 10);
  buffer.initialize(LETTERS + 5, 5, 2);
  EXPECT_EQ(contentOf(buffer), Content(5U, "fg"));
  EXPECT_EQ(storage(buffer), std::string("fg\0\0\0", 5));
}

TEST(ByteBufferTest, CopyingInitializeIntoTheSameCapacityDoesNotOverrunTheStorage) {
  ByteBuffer buffer = lettersIn(4, 4);
  buffer.initialize(LETTERS, 4, 10);
  EXPECT_EQ(contentOf(buffer), Content(4U, "abcd"));
  buffer.initialize(LETTERS + 1, 3, 10);
  EXPECT_EQ(contentOf(buffer), Content(3U, "bcd"));
}

TEST(ByteBufferTest, CopyingInitializeIntoTheSameCapacityKeepsTheStorage) {
  ByteBuffer buffer = lettersIn(6, 6);
  const unsigned char* const before = buffer.data();
  buffer.initialize(LETTERS + 4, 6, 2);
  EXPECT_EQ(buffer.data(), before);
  EXPECT_EQ(storage(buffer), "efcdef");
}

TEST(ByteBufferTest, CopyIsIndependentStorageOfTheSameCapacity) {
  ByteBuffer original = lettersIn(8, 3);
  ByteBuffer copy(original);
  EXPECT_EQ(contentOf(copy), Content(8U, "abc"));
  EXPECT_NE(copy.data(), original.data());
  *copy.at(0) = 'x';
  *original.at(1) = 'y';
  EXPECT_EQ(text(original), "ayc");
  EXPECT_EQ(text(copy), "xbc");
}

TEST(ByteBufferTest, CopyOfAViewIsDeep) {
  unsigned char bytes[] = {'a', 'b', 'c', 'd'};
  const ByteBufferViewport view(bytes, 4, 2);
  const ByteBuffer copy(view);
  EXPECT_NE(copy.data(), bytes);
  EXPECT_EQ(contentOf(copy), Content(4U, "ab"));
  bytes[0] = 'x';
  EXPECT_EQ(text(copy), "ab");
}

TEST(ByteBufferTest, CopyOfAnEmptyBufferIsEmpty) {
  const ByteBuffer empty;
  const ByteBuffer copy(empty);
  EXPECT_EQ(sizesOf(copy), Sizes(0U, 0U));
  ByteBuffer assigned = lettersIn(8, 3);
  assigned = empty;
  EXPECT_EQ(sizesOf(assigned), Sizes(0U, 0U));
}

TEST(ByteBufferTest, AssignmentIsADeepCopy) {
  const ByteBuffer original = lettersIn(8, 3);
  ByteBuffer copy = lettersIn(2, 2);
  EXPECT_EQ(&(copy = original), &copy);
  EXPECT_EQ(contentOf(copy), Content(8U, "abc"));
  EXPECT_NE(copy.data(), original.data());
}

TEST(ByteBufferTest, AssignmentFromAViewIsADeepCopyAlsoThroughTheBase) {
  unsigned char bytes[] = {'a', 'b', 'c', 'd'};
  const ByteBufferViewport view(bytes, 4, 2);
  ByteBuffer buffer;
  buffer = view;
  EXPECT_NE(buffer.data(), bytes);
  EXPECT_EQ(text(buffer), "ab");
  EXPECT_EQ(buffer.capacity(), 4U);

  ByteBuffer other = lettersIn(10, 10);
  ByteBufferViewport& base = other;
  base = view;
  EXPECT_NE(other.data(), bytes);
  EXPECT_EQ(text(other), "ab");
  EXPECT_EQ(other.capacity(), 4U);
}

TEST(ByteBufferTest, SelfAssignmentChangesNothing) {
  ByteBuffer buffer = lettersIn(8, 3);
  const unsigned char* const before = buffer.data();
  const ByteBuffer& itself = buffer;
  buffer = itself;
  EXPECT_EQ(buffer.data(), before);
  EXPECT_EQ(text(buffer), "abc");
  const ByteBufferViewport& base = buffer;
  buffer = base;
  EXPECT_EQ(buffer.data(), before);
  EXPECT_EQ(text(buffer), "abc");
  EXPECT_EQ(buffer.capacity(), 8U);
}

TEST(ByteBufferTest, SizeWithinTheCapacityNeverReallocates) {
  ByteBuffer buffer = lettersIn(8, 3);
  const unsigned char* const before = buffer.data();
  buffer.size(8);
  EXPECT_EQ(buffer.data(), before);
  EXPECT_EQ(contentOf(buffer), Content(8U, std::string("abc\0\0\0\0\0", 8)));
  buffer.size(1);
  EXPECT_EQ(buffer.data(), before);
  EXPECT_EQ(contentOf(buffer), Content(8U, "a"));
}

TEST(ByteBufferTest, SizeBeyondTheCapacityGrowsToExactlyThatAndDropsTheContents) {
  ByteBuffer buffer = lettersIn(8, 3);
  buffer.size(9);
  EXPECT_EQ(contentOf(buffer), Content(9U, std::string(9, '\0')));
}

TEST(ByteBufferTest, SizeThroughTheBaseGrowsToo) {
  ByteBuffer buffer = lettersIn(8, 3);
  ByteBufferViewport& base = buffer;
  base.size(9);
  EXPECT_EQ(sizesOf(buffer), Sizes(9U, 9U));
}

TEST(ByteBufferTest, SizeThatKeepsCarriesTheUsedBytesOver) {
  ByteBuffer buffer = lettersIn(8, 3);
  buffer.size(9, true);
  EXPECT_EQ(contentOf(buffer), Content(9U, std::string("abc\0\0\0\0\0\0", 9)));
  buffer.size(10, false);
  EXPECT_EQ(text(buffer), std::string(10, '\0'));
}

TEST(ByteBufferTest, CapacityOfTheSameValueKeepsContentsEvenWithoutKeep) {
  ByteBuffer buffer = lettersIn(8, 3);
  const unsigned char* const before = buffer.data();
  buffer.resizeCapacity(8, false);
  EXPECT_EQ(buffer.data(), before);
  EXPECT_EQ(text(buffer), "abc");
  buffer.capacity(8);
  EXPECT_EQ(text(buffer), "abc");
  buffer.capacity(8, false);
  EXPECT_EQ(text(buffer), "abc");
  buffer.resizeCapacity(8, true);
  EXPECT_EQ(buffer.data(), before);
  EXPECT_EQ(text(buffer), "abc");
}

TEST(ByteBufferTest, CapacityThatGrowsKeepsTheUsedSizeAndLosesTheContents) {
  ByteBuffer buffer = lettersIn(8, 3);
  buffer.capacity(12);
  EXPECT_EQ(sizesOf(buffer), Sizes(12U, 3U));
  EXPECT_EQ(storage(buffer), std::string(12, '\0'));
}

TEST(ByteBufferTest, CapacityThatGrowsAndKeepsCarriesTheUsedBytesOver) {
  ByteBuffer buffer = lettersIn(10, 10);
  buffer.size(3);
  buffer.capacity(12, true);
  EXPECT_EQ(sizesOf(buffer), Sizes(12U, 3U));
  EXPECT_EQ(storage(buffer), std::string("abc\0\0\0\0\0\0\0\0\0", 12));
}

TEST(ByteBufferTest, CapacityBelowTheUsedSizeClampsIt) {
  ByteBuffer buffer = lettersIn(8, 5);
  buffer.capacity(4);
  EXPECT_EQ(sizesOf(buffer), Sizes(4U, 4U));
  EXPECT_EQ(storage(buffer), std::string(4, '\0'));
}

TEST(ByteBufferTest, CapacityBelowTheUsedSizeKeepsWhatFits) {
  ByteBuffer buffer = lettersIn(8, 5);
  buffer.capacity(4, true);
  EXPECT_EQ(contentOf(buffer), Content(4U, "abcd"));
}

TEST(ByteBufferTest, CapacityEqualToTheUsedSizeKeepsIt) {
  ByteBuffer buffer = lettersIn(8, 5);
  buffer.capacity(5, true);
  EXPECT_EQ(text(buffer), "abcde");
  buffer.capacity(6);
  EXPECT_EQ(buffer.size(), 5U);
}

TEST(ByteBufferTest, CapacityZeroEmptiesTheBuffer) {
  ByteBuffer buffer = lettersIn(8, 5);
  buffer.capacity(0);
  EXPECT_EQ(sizesOf(buffer), Sizes(0U, 0U));
  buffer.size(2);
  EXPECT_EQ(text(buffer), std::string(2, '\0'));
}

// The overload is never to be used so; this pins what it does: nothing is copied.
TEST(ByteBufferTest, InheritedInitializePointsAtForeignStorage) {
  ByteBuffer buffer;
  auto* const foreign = new unsigned char[4]{'a', 'b', 'c', 'd'};  // the buffer will release it
  buffer.initialize(foreign, 4, 2);
  EXPECT_EQ(buffer.data(), foreign);
  EXPECT_EQ(contentOf(buffer), Content(4U, "ab"));
}

unsigned int sizeOfCopy(const ByteBuffer& copy) { return copy.size(); }

TEST(ByteBufferTest, AViewConvertsByItself) {
  unsigned char bytes[] = {'a', 'b', 'c'};
  const ByteBufferViewport view(bytes, 3, 2);
  EXPECT_EQ(sizeOfCopy(view), 2U);
  ByteBuffer copy = view;
  bytes[0] = 'x';
  EXPECT_EQ(text(copy), "ab");
}

}  // namespace
