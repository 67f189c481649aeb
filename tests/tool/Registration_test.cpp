// The tool's registry entry and the life of tool instances.
#include "host/ScriptInfo.h"
#include "support/ToolHarness.h"

namespace {

TEST(Registration, EntryCarriesItsTagsInOrder)
{
    const Registry* reg = Lumivane2Registry();
    ASSERT_EQ(ClassRegistry->Find(FuID("tevrinworks.Lumivane2")), reg);
    EXPECT_TRUE(reg->Initialised());
    const std::vector<Tag> order = {0x60000001, 0x60000002, 0x10000000, 0x30000008, 0x60000011, 0x60000005,
                                    0x60000000, 0x30000002, 0x10000004, 0x30000003, 0x30000004, 0x30000005,
                                    0x30000007, 0x30000009, 0x10000017, 0x3000000a};
    const auto& items = reg->Tags().Items();
    ASSERT_EQ(items.size(), order.size());
    for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(items[i].tag(), order[i]) << i;

    const TagList& t = reg->Tags();
    EXPECT_EQ(t.GetPtr(0x60000001), reinterpret_cast<const void*>(&Operator::RegInit));
    EXPECT_EQ(t.GetPtr(0x60000002), reinterpret_cast<const void*>(&Operator::RegCleanup));
    EXPECT_EQ(t.GetLong(0x10000000, 0), 3);
    EXPECT_EQ(t.GetString(0x30000008), "Built: Dec 15 2008");
    EXPECT_EQ(t.GetPtr(0x60000011), static_cast<const void*>(&ThreadedOperator::ClassID));
    EXPECT_EQ(t.GetPtr(0x60000000), reinterpret_cast<const void*>(&CreateLumivane2));
    EXPECT_EQ(t.GetString(0x30000002), "Lumivane 2");
    EXPECT_EQ(t.GetLong(0x10000004, 0), 101);
    EXPECT_EQ(t.GetString(0x30000003), "Nimbrel");
    EXPECT_EQ(t.GetString(0x30000004), "Lmv2");
    EXPECT_EQ(t.GetString(0x30000005), "Blur using the frequency domain with an arbitrary colour convolution kernel");
    EXPECT_EQ(t.GetString(0x30000007), "Tevrin Software Plugin. Please visit our website for more quality plugins.");
    EXPECT_EQ(t.GetString(0x30000009), "Tevrin Software");
    EXPECT_EQ(t.GetLong(0x10000017, 0), 101);
    EXPECT_FALSE(t.GetString(0x3000000a).empty());

    auto* info = static_cast<ScriptInfoT<Lumivane2>*>(const_cast<void*>(t.GetPtr(0x60000005)));
    EXPECT_EQ(info->Version, 1u);
    EXPECT_EQ(info->ID, "tevrinworks.Lumivane2");
    int probe = 0;
    EXPECT_EQ(info->ToScript(&probe), &probe);
    EXPECT_EQ(info->FromScript(&probe), &probe);
}

TEST(Registration, ManyInstancesLeaveNothingBehind)
{
    const long imagesBefore = Image::LiveCount();
    {
        FusionDoc doc;
        Lumivane2Registry();
        for (int i = 0; i < 50; ++i) {
            Operator* t = doc.AddTool(FuID("tevrinworks.Lumivane2"));
            if (i % 2) doc.RemoveTool(t);
        }
        EXPECT_EQ(doc.Tools().size(), 25u);
        Ref<Image> img(MakeImage(9, 7, [](int x, int, int) { return float(x); }));
        Ref<Number> size(new Number(3));
        for (const auto& t : doc.Tools()) {
            t->FindInput("input")->SetSource(img.get(), 0);
            t->FindInput("BlurSizeUnit")->SetSource(Ref<Number>(new Number(1)).get(), 0);
            t->FindInput("BlurSizeX")->SetSource(size.get(), 0);
            EXPECT_TRUE(doc.Render(t.get(), 0));
        }
    }
    EXPECT_EQ(Image::LiveCount(), imagesBefore);
}

}  // namespace
