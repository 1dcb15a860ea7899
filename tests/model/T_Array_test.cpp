// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "model/DB_FunctionDatas.h"
#include "model/DB_Hardware.h"
#include "model/DB_StepSets.h"
#include "model/ReallocRecorder.h"
#include "model/T_Array.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <type_traits>
#include <vector>

using ::testing::ElementsAre;

namespace
{

using IntArray = T_Array<int*, 0, 10>;

/// Appends @p count pointers to different numbers.
template <std::size_t kSize>
void Fill(IntArray& array, std::array<int, kSize>& numbers)
{
    for (int& number : numbers) {
        static_cast<void>(array.AddObject(&number));
    }
}

/// Counts its living objects.
struct Living {
    explicit Living(int& count) : m_count(&count) { ++*m_count; }
    Living(const Living&) = delete;
    Living& operator=(const Living&) = delete;
    ~Living() { --*m_count; }

private:
    int* m_count;
};

} // namespace

TEST(TArray, StartsEmptyWithoutABuffer)
{
    const IntArray array;

    EXPECT_EQ(array.capacity, 0);
    EXPECT_EQ(array.count, 0);
    EXPECT_EQ(array.items, nullptr);
    EXPECT_EQ(array.begin(), array.end());
}

TEST(TArray, TellsTheIndexOfEachNewElement)
{
    std::array<int, 2> numbers{};
    IntArray array;

    EXPECT_EQ(array.AddObject(numbers.data()), 0);
    EXPECT_EQ(array.AddObject(&numbers[1]), 1);
    EXPECT_EQ(array.AddObject(nullptr), 2);

    EXPECT_EQ(array.items[0], numbers.data());
    EXPECT_EQ(array.items[1], &numbers[1]);
    EXPECT_EQ(array.items[2], nullptr);
}

TEST(TArray, TheFirstElementMakesTheCapacityTen)
{
    std::array<int, 1> numbers{};
    IntArray array;

    Fill(array, numbers);

    EXPECT_EQ(array.capacity, 10);
}

TEST(TArray, TheTenthElementStillFitsInTenSlots)
{
    std::array<int, 10> numbers{};
    IntArray array;

    Fill(array, numbers);

    EXPECT_EQ(array.capacity, 10);
    EXPECT_EQ(array.count, 10);
}

TEST(TArray, TheEleventhElementMakesTheCapacityTwenty)
{
    std::array<int, 11> numbers{};
    IntArray array;

    Fill(array, numbers);

    EXPECT_EQ(array.capacity, 20);
    EXPECT_EQ(array.count, 11);
}

TEST(TArray, GrowsByTenSlotsAtATimeAndKeepsTheOrder)
{
    std::array<int, 101> numbers{};
    IntArray array;
    ReallocRecorder recorder;

    Fill(array, numbers);

    std::vector<std::size_t> sizes;
    for (std::size_t slots = 10; slots <= 110; slots += 10) {
        sizes.push_back(slots * sizeof(void*));
    }
    EXPECT_EQ(recorder.Sizes(), sizes);
    for (std::size_t index = 0; index < numbers.size(); ++index) {
        EXPECT_EQ(array.items[index], &numbers.at(index)) << index;
    }
}

TEST(TArray, ClearForgetsTheElementsAndKeepsTheBuffer)
{
    std::array<int, 11> numbers{};
    IntArray array;
    Fill(array, numbers);
    int** const buffer = array.items;

    array.Clear();

    EXPECT_EQ(array.count, 0);
    EXPECT_EQ(array.capacity, 20);
    EXPECT_EQ(array.items, buffer);
    EXPECT_EQ(array.AddObject(&numbers[3]), 0);
    EXPECT_EQ(array.items, buffer);
}

TEST(TArray, NeitherClearNorTheDestructorDestroysTheElements)
{
    int living = 0;
    Living first(living);
    Living second(living);
    {
        T_Array<Living*, 0, 10> array;
        static_cast<void>(array.AddObject(&first));
        array.Clear();
        static_cast<void>(array.AddObject(&second));
    }

    EXPECT_EQ(living, 2);
}

TEST(TArray, StaysAsItIsWhenTheBufferCannotGrow)
{
    std::array<int, 10> numbers{};
    IntArray array;
    Fill(array, numbers);
    int** const buffer = array.items;
    {
        ReallocRecorder recorder;
        recorder.FailNext();

        EXPECT_THROW(static_cast<void>(array.AddObject(nullptr)), std::bad_alloc);
    }

    EXPECT_EQ(array.capacity, 10);
    EXPECT_EQ(array.count, 10);
    EXPECT_EQ(array.items, buffer);
    EXPECT_EQ(array.AddObject(nullptr), 10);
}

TEST(TArray, OverridesOfAddObjectAndClearAreCalledThroughTheArrayObject)
{
    class Shouting final : public IntArray
    {
    public:
        void Clear() override { m_calls.emplace_back("clear"); }
        int AddObject(int* /*obj*/) override
        {
            m_calls.emplace_back("add");
            return 77;
        }
        std::vector<std::string> m_calls;
    };
    Shouting shouting;
    T_ArrayObject<int*, 0, 10>& array = shouting;

    EXPECT_EQ(array.AddObject(nullptr), 77);
    array.Clear();

    EXPECT_THAT(shouting.m_calls, ElementsAre("add", "clear"));
}

TEST(TArray, ListsAreObjectsFirstAndArraysSecond)
{
    static_assert(std::is_base_of_v<OSA_Mutex, T_ArrayObject<int*, 0, 10>>);
    static_assert(std::is_base_of_v<T_ArrayObject<int*, 0, 10>, IntArray>);
    static_assert(sizeof(IntArray) == sizeof(T_ArrayObject<int*, 0, 10>));
    static_assert(std::is_base_of_v<T_Array<DB_StepSet*, 0, 10>, DB_StepSets>);
    static_assert(std::is_base_of_v<T_Array<DB_CopyFunctionData*, 0, 10>, DB_CopyFunctionDatas>);
    static_assert(std::is_base_of_v<T_Array<DB_HardwareConfig*, 0, 10>, DB_HardwareConfigs>);
    static_assert(std::is_base_of_v<T_Array<DB_HardwareItem*, 0, 10>, DB_HardwareItems>);
    DB_StepSets list;

    EXPECT_EQ(static_cast<void*>(static_cast<IPicoJ*>(&list)), static_cast<void*>(&list));
    EXPECT_NE(static_cast<void*>(static_cast<OSA_Mutex*>(&list)), static_cast<void*>(&list));
}
