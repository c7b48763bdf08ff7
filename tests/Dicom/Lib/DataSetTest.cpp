#include "DataSetBytes.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <random>

TEST(DataSet, TheTreeAgreesWithAMapUnderRandomUse) {
    std::mt19937 random(7);
    DICOMDataObject set;
    std::map<std::int32_t, unsigned> model;
    for (unsigned step = 0; step < 20000; ++step) {
        const auto key = static_cast<std::uint32_t>(random() % 512) * 0x01010101U;
        const auto group = static_cast<std::uint16_t>(key >> 16);
        const auto element = static_cast<std::uint16_t>(key);
        if (random() % 3 != 0) {
            auto* const vr = new VR(group, element, 4, 1);
            std::memcpy(vr->m_pData, &step, 4);
            set.Push(vr);
            model.emplace(static_cast<std::int32_t>(key), step);  // the first one stays
        } else if (!model.empty()) {
            set.Push(new VR(0, 1, 0, 0));  // any push starts the walk over at the smallest key
            model.emplace(1, 0);
            const std::unique_ptr<VR> popped(set.Pop());
            ASSERT_EQ(ElementTree::Key(popped->m_Group, popped->m_Element), model.begin()->first);
            model.erase(model.begin());
        }
        const VR* const found = set.GetVR(group, element);
        const auto expected = model.find(static_cast<std::int32_t>(key));
        ASSERT_EQ(found != nullptr, expected != model.end());
        if (found != nullptr && found->m_Length == 4) {
            ASSERT_EQ(std::memcmp(found->m_pData, &expected->second, 4), 0);
        }
        const VR* const from = set.GetFrom(group, element);
        const auto next = model.lower_bound(static_cast<std::int32_t>(key));
        ASSERT_EQ(from != nullptr, next != model.end());
        if (from != nullptr) {
            ASSERT_EQ(ElementTree::Key(from->m_Group, from->m_Element), next->first);
        }
    }
    auto walk = model.begin();
    for (const VR* vr = set.GetFirst(); vr != nullptr; vr = set.GetNext(vr), ++walk) {
        ASSERT_EQ(ElementTree::Key(vr->m_Group, vr->m_Element), walk->first);
    }
    EXPECT_TRUE(walk == model.end());
}

// Streams come in order, which shapes the tree another way than what is put in or taken out afterwards.
TEST(DataSet, TheTreeHoldsWhatCameInOrderAndWasChangedThen) {
    std::mt19937 random(11);
    for (std::uint32_t count = 0; count < 70; ++count) {
        DICOMDataObject set;
        std::map<std::uint32_t, const VR*> model;
        const auto push = [&](std::uint32_t key) {
            auto* const vr = new VR(static_cast<std::uint16_t>(key), 1, 0, 0);
            set.Push(vr);
            model.emplace(key, vr);
        };
        const auto check = [&] {
            auto next = model.begin();
            for (const VR* vr = set.GetFirst(); vr != nullptr; vr = set.GetNext(vr), ++next) {
                ASSERT_TRUE(next != model.end());
                ASSERT_EQ(vr, next->second) << count;
                ASSERT_EQ(set.GetVR(vr->m_Group, 1), vr) << count;
            }
            ASSERT_TRUE(next == model.end()) << count;
        };
        for (std::uint32_t key = 0; key < count; ++key) push(10 * key);
        check();
        for (unsigned step = 0; step < 12; ++step) {
            const auto key = static_cast<std::uint32_t>(random() % (10 * count + 20));
            const auto at = model.lower_bound(key);
            // Some are only taken from, some are appended to after that, and some are emptied and begin anew.
            if (count % 3 == 0 ? at != model.end() : random() % 2 == 0 && at != model.end()) {
                EXPECT_EQ(set.Take(static_cast<std::uint16_t>(at->first), 1).get(), at->second);
                model.erase(at);
            } else if (!model.contains(key)) {
                push(count % 3 == 1 ? 10 * count + 20 + step : key);
            }
            check();
        }
    }
}

TEST(DataSet, TheFirstElementOfATagStaysAndItemsOfARejectedOneHaveAHome) {
    DICOMDataObject set;
    set.Push(MakeText(0x0008, 0x0016, "UI", "1.2"));
    EXPECT_EQ(set.Push(MakeText(0x0008, 0x0016, "UI", "9.9")), 1);
    EXPECT_EQ(set.PushItemToLast(new DICOMDataObject), 1);
    EXPECT_EQ(set.GetVR(0x0008, 0x0016)->GetText().substr(0, 3), "1.2");
    EXPECT_EQ(set.GetVR(0x0008, 0x0016)->GetItemCount(), 0U);
    set.Reset();
    EXPECT_EQ(set.GetFirst(), nullptr);
    EXPECT_EQ(set.PushItemToLast(nullptr), 0);
    set.Push(MakeText(0x0008, 0x0016, "UI", "1.2"));
    delete set.Pop();
    EXPECT_EQ(set.Pop(), nullptr);
    EXPECT_EQ(set.PushItemToLast(nullptr), 0) << "the element pushed last has been popped";

    DICOMDataObject target;
    set.SetPushTarget(&target);
    auto* const undefined = new VR(0x0040, 0xA730, 0, 0);
    undefined->m_Length = 0xFFFFFFFF;
    set.Push(undefined);
    EXPECT_EQ(target.GetVR(0x0040, 0xA730), undefined) << "forwarded";
    EXPECT_EQ(undefined->m_Length, 0U);
    EXPECT_EQ(set.GetFirst(), nullptr);
}

TEST(DataSet, NestedLengthCountsSequencesAndItems) {
    DICOMDataObject outer;
    auto* const inner = new DICOMDataObject;
    inner->Push(new VR(0x0040, 0x0001, 0, 0));
    inner->PushItemToLast(new DICOMDataObject);
    EXPECT_EQ(inner->GetNestedLength(), 32U);
    outer.Push(new VR(0x0040, 0x0002, 0, 0));
    outer.PushItemToLast(inner);
    outer.PushItemToLast(new DICOMDataObject);
    EXPECT_EQ(outer.GetNestedLength(), 32U + 32U + 16U);
}

TEST(DataSet, UINT16NeedsExactlyTwoBytes) {
    DICOMDataObject set;
    set.Push(MakeU16(0x0028, 0x0010, 0xFEDC));
    set.Push(new VR(0x0028, 0x0011, 4, 1));
    set.Push(new VR(0x0028, 0x0012, 2, 0));
    EXPECT_EQ(set.GetUINT16(0x0028, 0x0010), 0xFEDC);
    for (const int element : {0x11, 0x12, 0x13}) EXPECT_EQ(set.GetUINT16(0x28, static_cast<std::uint16_t>(element)), 0);
}

TEST(Element, OddLengthsAreRaisedWithAZero) {
    for (const std::uint32_t odd : {5U, 100001U}) {
        const VR raised(0x0010, 0x0010, odd, 1);
        EXPECT_EQ(raised.m_Length, odd + 1);
        EXPECT_EQ(raised.m_pData[odd], 0);
    }
    const VR unallocated(0x0010, 0x0010, 3, 0);
    EXPECT_EQ(unallocated.m_Length, 4U);
    EXPECT_EQ(unallocated.m_pData, nullptr);
}

TEST(Element, TakeValueMovesValuesOfEverySizeAndItems) {
    for (const std::size_t size : {2U, 22U, 24U, 1000U, 200000U}) {
        VR taker(0x0009, 0x0001, 30, 1);
        taker.AddItem(new DICOMDataObject);
        const std::unique_ptr<VR> source(MakeText(0x0009, 0x0001, "UT", std::string(size, 'q')));
        EXPECT_EQ(taker.TakeValueFrom(nullptr), 0);
        VR other(0x0009, 0x0002, 2, 1);
        EXPECT_EQ(taker.TakeValueFrom(&other), 0);
        EXPECT_EQ(taker.GetItemCount(), 1U);
        ASSERT_EQ(taker.TakeValueFrom(source.get()), 1);
        EXPECT_EQ(taker.GetText(), std::string(size, 'q'));
        EXPECT_EQ(taker.m_TypeCode, TypeCode("UT"));
        EXPECT_EQ(taker.GetItemCount(), 0U);
        EXPECT_TRUE(source->m_pData == nullptr && source->m_Length == 0 && source->m_bOwnsData == 0);
        EXPECT_EQ(source->m_bValueMoved, 1);
    }
}

TEST(Element, CopiesShareOrOwnTheirBytesAndAlwaysOwnTheirItems) {
    VR source(0x0040, 0xA730, 4, 1);
    std::memcpy(source.m_pData, "abcd", 4);
    int reference = 0;
    source.m_pReference = &reference;
    auto* const item = new DICOMDataObject;
    item->Push(MakeText(0x0008, 0x0100, "SH", "code"));
    source.AddItem(item);
    const std::unique_ptr<VR> deep(source.Clone(true));
    const std::unique_ptr<VR> shallow(source.Clone(false));
    source.m_pData[0] = 'X';
    EXPECT_EQ(deep->GetText(), "abcd");
    EXPECT_TRUE(shallow->m_pData == source.m_pData && shallow->m_bOwnsData == 0);
    EXPECT_TRUE(deep->m_pReference == &reference && shallow->m_pReference == nullptr);
    EXPECT_NE(shallow->GetItem(0), item);
    EXPECT_EQ(Listing(*deep->GetItem(0)), Listing(*item));
    const std::unique_ptr<DICOMObject> popped(source.PopItem());
    EXPECT_EQ(popped.get(), item);
    EXPECT_EQ(shallow->GetItemCount(), 1U);
}

TEST(DataElement, TheUndefinedLengthMakesAnEmptyElement) {
    for (const int allocate : {0, 1}) {
        VR element(0x0009, 0x1001, 0xFFFFFFFFU, allocate);
        EXPECT_EQ(element.m_Length, 0U);
        EXPECT_EQ(element.m_pData, nullptr);
    }
}

TEST(DataElement, MemoryOfTheHostTakesThePlaceOfAllocatedMemory) {
    // 100,000 bytes come from another place than 100, and 10 lie in the element.
    for (const std::uint32_t length : {10U, 100U, 3000U, 100000U}) {
        VR element(0x0009, 0x1001, length, 1);
        std::unique_ptr<VR> aside(element.Clone(true));
        ASSERT_EQ(element.TakeValueFrom(aside.get()), 1);
        VR keeper(0x0009, 0x1001, 0, 1);  // frees what the element had allocated
        ASSERT_EQ(keeper.TakeValueFrom(&element), 1);
        element.m_pData = static_cast<unsigned char*>(std::malloc(8));
        element.m_Length = 8;
        element.m_bOwnsData = 1;
        // The destructor frees the host's memory as malloc gave it.
    }
}

TEST(CursorList, FindsEveryIndexFromWhereverTheCursorStands) {
    CursorList<int> list;
    list.SetOwnsItems(false);
    int values[50];
    for (int& value : values) list.Append(&value);
    std::mt19937 random(3);
    for (int i = 0; i < 2000; ++i) {
        const auto index = static_cast<std::uint32_t>(random() % 50);
        ASSERT_EQ(list.At(index), &values[index]);
        ASSERT_EQ(list.At(index + 1), index + 1 < 50 ? &values[index + 1] : nullptr);
    }
    EXPECT_EQ(list.At(50), nullptr);
    EXPECT_EQ(list.PopFirst(), &values[0]);
    EXPECT_EQ(list.At(0), &values[1]);
    EXPECT_EQ(list.At(48), &values[49]);
}

TEST(TemplateStack, GivesBackInReverseOrderBeyondItsFirstSixteen) {
    TemplateStack<int> stack;
    int values[100];
    for (int& value : values) stack.Push(&value);
    for (int i = 99; i >= 0; --i) ASSERT_EQ(stack.Pop(), &values[i]);
    EXPECT_TRUE(stack.IsEmpty());
}
