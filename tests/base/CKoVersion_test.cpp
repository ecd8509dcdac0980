#include "pf/base/CKoVersion.h"

#include <cstring>
#include <new>

#include <gtest/gtest.h>

#include "pf/base/IKoRuntimeInfo.h"

namespace
{

struct IShape : IKoRuntimeInfo
{
    static const CKoClassID sClassID;
};
const CKoClassID IShape::sClassID("IShape");

struct Other
{
    virtual ~Other() = default;
    int number = 0;
};

/// The interface is not where the object begins.
struct Circle : Other, IShape
{
    void* queryInterface(const CKoClassID& id) override
    {
        return &id == &IShape::sClassID ? static_cast<IShape*>(this) : castToPtr(id);
    }
};

TEST(CKoVersion, hasOneInvalidVersion)
{
    const CKoVersion& invalid = CKoVersion::invalidVersion();
    EXPECT_EQ(&invalid, &CKoVersion::invalid);
    EXPECT_EQ(invalid.getMajor() + invalid.getMinor() + invalid.getRevision(), 0);
    const CKoVersion copy = CKoVersion(7, 65535, 3);
    EXPECT_EQ(copy.getMajor(), 7);
    EXPECT_EQ(copy.getMinor(), 65535);
    EXPECT_EQ(copy.getRevision(), 3);
}

TEST(CKoClassID, leavesNoNameBehind)
{
    alignas(CKoClassID) unsigned char storage[sizeof(CKoClassID)];
    (new (storage) CKoClassID("name"))->~CKoClassID();
    const char* left = "name";
    std::memcpy(&left, storage, sizeof(left));
    EXPECT_EQ(left, nullptr);
}

TEST(IKoRuntimeInfo, answersForIdentifiersByTheirAddress)
{
    Circle circle;
    const IKoRuntimeInfo& constant = circle;
    const CKoClassID sameName("IKoRuntimeInfo");
    EXPECT_STREQ(IKoRuntimeInfo::sClassID.getName(), sameName.getName());
    EXPECT_EQ(circle.castToPtr(IKoRuntimeInfo::sClassID), static_cast<IKoRuntimeInfo*>(&circle));
    EXPECT_EQ(constant.castToPtr(IKoRuntimeInfo::sClassID), &constant);
    EXPECT_EQ(circle.queryInterface(IShape::sClassID), static_cast<IShape*>(&circle));
    EXPECT_EQ(circle.queryInterface(IKoRuntimeInfo::sClassID), &constant);
    EXPECT_EQ(circle.queryInterface(sameName), nullptr);
    EXPECT_EQ(constant.castToPtr(sameName), nullptr);
}

} // namespace
