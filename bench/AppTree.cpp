#include "AppTree.h"
#include "BenchClient.h"

#include "platform/PlistDict.h"
#include "platform/PropertyList.h"

#include <QDir>
#include <QFile>

#include <algorithm>

namespace {

void makeBundle(const QString &folder, int number, bool client)
{
    const QString name = QStringLiteral("App%1").arg(number);
    BenchClient::write(folder, name,
                       (client ? QStringLiteral("com.vantreel.") : QStringLiteral("org.example.")) +
                           name,
                       client ? 3 : 0);
}

} // namespace

AppTree::Counts AppTree::make(const QString &applications, int folders, int bundles)
{
    // Three levels: 20 vendors of 25 groups each, the rest of the folders as leaves of the
    // groups, and the bundles spread evenly over the groups.
    constexpr int kVendors = 20;
    constexpr int kGroups = 25;
    const int groups = kVendors * kGroups;
    const int leaves = std::max(0, (folders - kVendors - groups + groups - 1) / groups);
    Counts counts;
    counts.folders = kVendors + groups + groups * leaves;
    int bundle = 0;
    for (int g = 0; g < groups; ++g) {
        const QString group =
            applications + QStringLiteral("/Vendor%1/Group%2").arg(g / kGroups).arg(g % kGroups);
        QDir().mkpath(group);
        for (int l = 0; l < leaves; ++l) {
            QDir().mkpath(group + QStringLiteral("/Leaf%1").arg(l));
        }
        for (; bundle < bundles && bundle * groups / bundles <= g; ++bundle) {
            makeBundle(group, bundle, bundle % 2 == 0);
            counts.clients += bundle % 2 == 0 ? 1 : 0;
        }
    }
    counts.bundles = bundle;
    return counts;
}
