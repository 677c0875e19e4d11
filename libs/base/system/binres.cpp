// Resource look-up by number, name and locale, and extraction into memory or pixmaps.
#include "base/system/binres.h"

#include <cstdlib>
#include <cstring>

#include "base/system/file.h"
#include "base/system/system.h"

namespace mirel {

// Rows in their historical order; 638 and "cursor_hand_open" appear twice on purpose.
const ResIDName resIDNameMap[kResIDNameCount] = {
    {211, "dglogo"},
    {221, "crosshair"},
    {235, "banner"},
    {240, "cursor_hand_grab"},
    {249, "cursor_crosshair_inverse"},
    {252, "cursor_hand_open"},
    {255, "cursor_crosshair_thick"},
    {331, "cursor_crosshair_open"},
    {403, "overview_console"},
    {656, "vantorlogo"},
    {521, "cursor_hand_open"},
    {638, "streamed_layers"},
    {658, "16x16"},
    {660, "closedfolder"},
    {662, "drawcircle"},
    {663, "drawline"},
    {664, "drawpolygon"},
    {665, "drawpolyline"},
    {666, "mysavedplaces_closed"},
    {667, "mysavedplaces_open"},
    {638, "streamed_layers"},
    {668, "openfolder"},
    {670, "overlay"},
    {747, "ad_ll"},
    {749, "ad_lr"},
    {744, "ad_ur"},
    {742, "ad_ul"},
    {746, "ad_l"},
    {748, "ad_lo"},
    {741, "ad_r"},
    {743, "ad_up"},
    {745, "ad_center"},
    {737, "descrip_ll"},
    {752, "descrip_ll_noad"},
    {739, "descrip_lr"},
    {753, "descrip_lr_noad"},
    {734, "descrip_ur"},
    {732, "descrip_ul"},
    {736, "descrip_l"},
    {738, "descrip_lo"},
    {740, "descrip_r"},
    {733, "descrip_up"},
    {750, "flatarrow"},
    {735, "descrip_center"},
    {681, "ni_closed_connected"},
    {682, "ni_closed_disconnected"},
    {683, "ni_closed_fetching_01"},
    {684, "ni_closed_fetching_02"},
    {685, "ni_closed_fetching_03"},
    {686, "opennetworkfolder"},
    {687, "ni_open_disconnected"},
    {688, "ni_open_fetching_01"},
    {689, "ni_open_fetching_02"},
    {690, "ni_open_fetching_03"},
    {786, "play-forward"},
    {779, "play-forward-dis"},
    {757, "back"},
    {756, "back-dis"},
    {763, "cancel"},
    {787, "pause"},
    {788, "stop"},
    {550, "clear"},
};

namespace {

bool bUseMirelStyle = false;

QPixmap pixmapFrom(void* data, int size) {
    QPixmap pixmap;
    if (data != nullptr) {
        pixmap.loadFromData(static_cast<const uchar*>(data), static_cast<uint>(size));
        std::free(data);
    }
    return pixmap;
}

}  // namespace

const char* FindResName(int id) {
    for (const ResIDName& row : resIDNameMap) {
        if (row.id == id) return row.name;
    }
    return nullptr;
}

QString MakeBinResourcePath(int id, const QString& type) {
    const char* name = FindResName(id);
    return GetResourcePathNS(type, name != nullptr ? QString::fromLatin1(name) : QString());
}

QString BinRes::GetResourcePath(const QString& type, const QString& name) {
    return GetResourcePathNS(type, name);
}

void* BinRes::ExtractBinResource(const QString& type, int id, int& size) {
    const QString path = MakeBinResourcePath(id, type);
    return path.isNull() ? nullptr : file::readFile(path, size);
}

void* BinRes::ExtractBinResource(const QString& type, const QString& name, int& size) {
    const QString path = GetResourcePath(type, name);
    return path.isNull() ? nullptr : file::readFile(path, size);
}

QPixmap BinRes::ExtractPixmap(const QString& type, int id) {
    int size = 0;
    void* data = ExtractBinResource(type, id, size);
    return pixmapFrom(data, size);
}

QPixmap BinRes::ExtractPixmap(const QString& type, const QString& name) {
    int size = 0;
    void* data = ExtractBinResource(type, name, size);
    return pixmapFrom(data, size);
}

QString BinRes::ExtractToDisk(const QString& type, int id, const QString&) {
    return MakeBinResourcePath(id, type);
}

QString BinRes::SearchLocaleDirsForResource(const QString& type, const QString& name,
                                            const QString& dir, const QString& suffix) {
    return SearchLocaleDirsForResource(type, name, dir, suffix,
                                       System::getPreferredLocaleList());
}

QString BinRes::SearchLocaleDirsForResource(const QString& type, const QString& name,
                                            const QString& dir, const QString& suffix,
                                            const QStringList& locales) {
    const QString fileName = name + QLatin1Char('.') + type;
    const QString plain = dir + QLatin1Char('/') + fileName;
    if (file::exists(plain)) return plain;
    for (const QString& locale : locales) {
        QString candidate = dir + QLatin1Char('/') + locale + QLatin1Char('.') + suffix +
                            QLatin1Char('/') + fileName;
        if (file::exists(candidate)) return candidate;
        // A locale with a region ("fr_CA") falls back on its language ("fr").
        if (locale.size() >= 5) {
            candidate = dir + QLatin1Char('/') + locale.left(2) + QLatin1Char('.') + suffix +
                        QLatin1Char('/') + fileName;
            if (file::exists(candidate)) return candidate;
        }
    }
    return QString(QLatin1String(""));
}

void BinRes::setUseMirelStyle(bool use) { bUseMirelStyle = use; }

bool BinRes::useMirelStyle() { return bUseMirelStyle; }

void BinRes::cleanup() {}

}  // namespace mirel
