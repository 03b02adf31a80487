#include "ui/VTImageTextCell.h"

#include <gtest/gtest.h>

#include <QtWidgets>

#include <optional>

namespace {

const std::optional<QSizeF> kIcon18 = QSizeF(18, 18);
const std::optional<QSizeF> kNoImage;

QImage solid(const QColor &color, int size = 18)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(color);
    return image;
}

} // namespace

// The field editor sits right of the image's 25-point slice (without an image, 7 points
// in); a long subtitle is cut by the average character width.
TEST(VTImageTextCellTest, TheFramesOfImageTitleAndEditor)
{
    using C = VTImageTextCell;
    const QRectF bounds(10, 40, 200, 24);
    EXPECT_EQ(C::editingFrame(bounds, kIcon18), QRectF(35, 40, 175, 24));
    EXPECT_EQ(C::editingFrame(bounds, kNoImage), QRectF(17, 40, 193, 24));
    // A frame narrower than the slice leaves nothing for the editor.
    EXPECT_EQ(C::editingFrame(QRectF(10, 40, 20, 24), kIcon18), QRectF(30, 40, 0, 24));
    // The image 3 points in, its y from the heights alone; the title's offset from the
    // image's width; neither without an image.
    EXPECT_EQ(C::imageRectForBounds(bounds, kIcon18), QRectF(13, 3, 18, 18));
    EXPECT_EQ(C::titleRectForBounds(bounds, kIcon18, "sub"), QRectF(31, 19, 179, 24));
    EXPECT_EQ(C::titleRectForBounds(bounds, kIcon18, QString()), QRectF(31, 22, 179, 24));
    EXPECT_EQ(C::imageRectForBounds(bounds, kNoImage), QRectF());
    EXPECT_EQ(C::titleRectForBounds(bounds, kNoImage, "sub"), QRectF());
    EXPECT_EQ(VTImageTextCell(solid(Qt::blue)).image().size(), QSize(18, 18));
    // 10 characters 100 wide, and room for 110 - 50 = 60, so 6 characters; narrower than 50
    // leaves no room at all.
    const QString text = "abcdefghij";
    EXPECT_EQ(C::shortenedSubtitle(text, 100, 110), "abcdef...");
    EXPECT_EQ(C::shortenedSubtitle(text, 100, 150), text);
    EXPECT_EQ(C::shortenedSubtitle(text, 100, 20), "...");
    EXPECT_EQ(C::shortenedSubtitle(QString(), 0, 20), QString());
}

// Each row sets its image just before it is drawn; a row without one of its own keeps the
// image of the row before. The icon covers (3, 3) to (21, 21). A subtitle is drawn in its
// colour, white when selected, and cells narrower than 50 points draw without failing.
TEST(VTImageTextCellTest, TheCellDrawsEachRowsImageAndSubtitle)
{
    QStandardItemModel model(2, 1);
    QTableView table;
    table.setModel(&model);
    auto *cell = new VTImageTextCell(&table);
    table.setItemDelegate(cell);
    QStyleOptionViewItem option;
    option.initFrom(&table);
    option.widget = &table;
    const auto drawRow = [&](int row, bool selected = false, int width = 300) {
        QImage image(width, 24, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::white);
        QPainter painter(&image);
        option.rect = QRect(0, 0, width, 24);
        option.state.setFlag(QStyle::State_Selected, selected);
        cell->paint(&painter, option, model.index(row, 0));
        return image;
    };
    const QSize without = cell->sizeHint(option, model.index(0, 0));
    std::vector<int> seen;
    cell->setWillDisplayCell([&](VTImageTextCell &c, const QModelIndex &index) {
        seen.push_back(index.row());
        if (index.row() == 0) {
            c.setImage(solid(Qt::red));
        }
    });
    const QImage first = drawRow(0);
    EXPECT_EQ(first.pixelColor(4, 4), QColor(Qt::red));
    EXPECT_EQ(first.pixelColor(20, 20), QColor(Qt::red));
    EXPECT_NE(first.pixelColor(1, 1), QColor(Qt::red));
    EXPECT_NE(first.pixelColor(23, 12), QColor(Qt::red));
    EXPECT_EQ(drawRow(1).pixelColor(10, 10), QColor(Qt::red));
    EXPECT_EQ(seen, std::vector<int>({0, 1}));
    // The size hint makes room for the image.
    const QSize with = cell->sizeHint(option, model.index(0, 0));
    EXPECT_EQ(with - without, QSize(18, 0));

    cell->setSubtitle("A subtitle long enough to be shortened somewhere");
    cell->setSubtitleColor(Qt::red);
    const auto reddish = [](const QImage &image) {
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 30; x < image.width(); ++x) {
                const QColor c = image.pixelColor(x, y);
                if (c.red() > 150 && c.green() < 100 && c.blue() < 100) {
                    return true;
                }
            }
        }
        return false;
    };
    EXPECT_TRUE(reddish(drawRow(0)));
    EXPECT_FALSE(reddish(drawRow(0, true)));
    for (int width : {60, 49, 30, 10, 1}) {
        EXPECT_EQ(drawRow(0, false, width).width(), width);
    }
}
