#include "platform/KvoAppOptionsImpl.h"

#include <QSettings>

namespace kvo {

namespace {

class CKvoAppOptions : public IKvoAppOptions {
public:
    long getBrushRadius() const override { return settings().value("brush/radius", 25).toInt(); }
    void setBrushRadius(long radius) override { settings().setValue("brush/radius", int(std::max(1L, radius))); }
    KvoColor4b getBrushColor() const override
    {
        const uint v = settings().value("brush/color", 0xFF0000FFu).toUInt();
        return KvoColor4b(uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v));
    }
    void setBrushColor(const KvoColor4b& c) override
    {
        settings().setValue("brush/color", (uint(c.r) << 24) | (uint(c.g) << 16) | (uint(c.b) << 8) | uint(c.a));
    }
    long getFeatherSize() const override { return settings().value("feather/size", 5).toInt(); }
    void setFeatherSize(long size) override { settings().setValue("feather/size", int(std::max(0L, size))); }
    long getFeatherHardness() const override { return settings().value("feather/hardness", 50).toInt(); }
    void setFeatherHardness(long hardness) override
    {
        settings().setValue("feather/hardness", int(std::min(100L, std::max(0L, hardness))));
    }
    ref_ptr<KvoArray<KvoColor4b>> getColorTable() const override
    {
        // Hues spread by the golden angle, so neighbours in the table differ clearly.
        ref_ptr<KvoArray<KvoColor4b>> table(new KvoArray<KvoColor4b>());
        for (int i = 0; i < 64; ++i) {
            const double h = std::fmod(i * 137.50776405, 360.0) / 60.0;
            const double s = (i % 2) ? 0.65 : 0.9, v = (i % 3 == 2) ? 0.75 : 0.95;
            const double c = v * s, x = c * (1 - std::fabs(std::fmod(h, 2.0) - 1)), m = v - c;
            double r = 0, g = 0, b = 0;
            switch (int(h)) {
            case 0: r = c, g = x; break;
            case 1: r = x, g = c; break;
            case 2: g = c, b = x; break;
            case 3: g = x, b = c; break;
            case 4: r = x, b = c; break;
            default: r = c, b = x; break;
            }
            table->append(KvoColor4b(uint8_t((r + m) * 255), uint8_t((g + m) * 255), uint8_t((b + m) * 255), 255));
        }
        return table;
    }
    QString getImageEditor() const override { return settings().value("editor/program", "gimp").toString(); }
    void setImageEditor(const QString& program) override { settings().setValue("editor/program", program); }

private:
    static QSettings& settings()
    {
        static QSettings s(QSettings::IniFormat, QSettings::UserScope, "Quovara", "Quovara");
        return s;
    }
};

} // namespace

ref_ptr<IKvoAppOptions> newKvoAppOptions()
{
    return ref_ptr<IKvoAppOptions>(new CKvoAppOptions());
}

} // namespace kvo
