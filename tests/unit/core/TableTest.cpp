#include "pkcs11/core/MechanismList.h"
#include "tests/support/Failure.h"

#include <memory>

using namespace PKCS11;

struct StubbornTable : Table {
    using Table::delEntry;
    void delEntry(void* /*entry*/) override { throw PKCS11Exception(CKR_GENERAL_ERROR); }
};

TEST(TableTest, HandsOutTheLowestFreeHandle)
{
    int entries[16] = {};
    Table table;
    EXPECT_EQ(codeOf([&] { table.getEntry(1); }), CKR_OBJECT_HANDLE_INVALID);
    for (unsigned long i = 0; i < 16; ++i) {
        EXPECT_EQ(table.putEntry(&entries[i]), i + 1);
        EXPECT_EQ(table.capacity(), i < 10 ? 10U : i < 15 ? 15U : 20U);
    }
    EXPECT_EQ(table.delEntry(2UL), &entries[1]);
    EXPECT_EQ(table.addNewEntry(&entries[2]), 3U);
    EXPECT_EQ(table.addNewEntry(static_cast<void*>(nullptr)), 0U);
    EXPECT_EQ(table.addNewEntry(&entries[1]), 2U);
    table.delEntry(&entries[15]);
    EXPECT_EQ(table.highWater(), 16U);
    for (const unsigned long handle : {0UL, 16UL, 20UL, 21UL, ~0UL}) {
        EXPECT_EQ(codeOf([&] { table.getEntry(handle); }), CKR_OBJECT_HANDLE_INVALID) << handle;
        EXPECT_EQ(table.delEntry(handle), nullptr) << handle;
    }
    EXPECT_EQ(table.putEntry(&entries[15]), 16U);
    Table other;
    EXPECT_EQ(other.addNewEntry(&table), 0U);
    EXPECT_EQ(other.getEntry(1), &entries[0]);
    EXPECT_EQ(other.getEntry(16), &entries[15]);
    EXPECT_EQ(StubbornTable().delEntry(&other), 0U);
    EXPECT_EQ(table.delEntry(&other), 0U);
    EXPECT_EQ(codeOf([&] { table.getEntry(16); }), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(codeOf([&] { table.getEntry(1); }), CKR_OBJECT_HANDLE_INVALID);
}

TEST(MechanismListTest, FindsTheFirstOfAType)
{
    MechanismList list;
    list.add({CKM_MD5, 1, 1, CKF_DIGEST});
    list.add({CKM_RSA_PKCS, 2048, 512, CKF_HW | CKF_ENCRYPT | CKF_SIGN | CKF_VERIFY});
    list.add({CKM_RSA_PKCS, 1, 1, CKF_DIGEST});
    const std::unique_ptr<MechanismInfo> removed(list.at(1));
    list.delEntry(1UL);
    const MechanismInfo* info = list.getMechanism(CKM_RSA_PKCS);
    EXPECT_EQ(info->getInfo().ulMinKeySize, 512U);
    EXPECT_EQ(info->getInfo().ulMaxKeySize, 2048U);
    EXPECT_EQ(info->getInfo().flags, 0x2901U);
    EXPECT_TRUE(info->isSign() && info->isVerify() && !info->isDigest() && !info->isVerifyRecover());
    EXPECT_EQ(codeOf([&] { list.getMechanism(CKM_MD5); }), CKR_MECHANISM_INVALID);
    EXPECT_EQ(codeOf([&] { list.getMechanism(nullptr); }), CKR_ARGUMENTS_BAD);
}
