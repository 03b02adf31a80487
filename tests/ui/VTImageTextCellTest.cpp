#include "ui/VTImageTextCell.h"
#include "ui/IconViewBox.h"

#include <gtest/gtest.h>

#include <QHeaderView>
#include <QPainter>
#include <QStandardItemModel>
#include <QTableView>

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

// The geometry of the cell: the image 3 points in, its title and field editor to its
// right; without an image the frame is the title's.
TEST(VTImageTextCellTest, TheFramesOfImageTitleAndEditor)
{
    using C = VTImageTextCell;
    EXPECT_EQ(C::cellSize(QSizeF(100, 17), kIcon18), QSizeF(121, 17));
    EXPECT_EQ(C::cellSize(QSizeF(100, 17), QSizeF(32, 16)), QSizeF(135, 17));
    EXPECT_EQ(C::cellSize(QSizeF(100, 17), kNoImage), QSizeF(103, 17));
    // The bounds' own y is ignored; ceil((25 - 18) * 0.5) = 4.
    EXPECT_EQ(C::imageRectForBounds(QRectF(10, 40, 200, 24), kIcon18), QRectF(13, 3, 18, 18));
    EXPECT_EQ(C::imageRectForBounds(QRectF(10, 40, 200, 25), kIcon18), QRectF(13, 4, 18, 18));
    EXPECT_EQ(C::imageRectForBounds(QRectF(0, 0, 50, 10), QSizeF(32, 16)), QRectF(3, -3, 32, 16));
    EXPECT_EQ(C::imageRectForBounds(QRectF(10, 40, 200, 24), kNoImage), QRectF(0, 0, 0, 0));
    EXPECT_EQ(C::titleRectForBounds(QRectF(10, 40, 200, 24), kIcon18, QString()),
              QRectF(31, 22, 179, 24));
    EXPECT_EQ(C::titleRectForBounds(QRectF(10, 40, 200, 24), kIcon18, "sub"),
              QRectF(31, 19, 179, 24));
    // Width, not height, decides the vertical offset.
    EXPECT_EQ(C::titleRectForBounds(QRectF(0, 100, 300, 40), QSizeF(32, 16), "s"),
              QRectF(35, 65, 265, 40));
    EXPECT_EQ(C::titleRectForBounds(QRectF(10, 40, 200, 24), kNoImage, "sub"), QRectF(0, 0, 0, 0));
    EXPECT_EQ(C::editingFrame(QRectF(10, 40, 200, 24), kIcon18), QRectF(35, 40, 175, 24));
    EXPECT_EQ(C::editingFrame(QRectF(10, 40, 200, 24), kNoImage), QRectF(17, 40, 193, 24));
    // A frame narrower than the slice leaves nothing for the editor.
    EXPECT_EQ(C::editingFrame(QRectF(10, 40, 20, 24), kIcon18), QRectF(30, 40, 0, 24));
}

TEST(VTImageTextCellTest, TheInteriorLayoutCentresTheImageAndPlacesTheSubtitle)
{
    const auto layout =
        VTImageTextCell::interiorLayout(QRectF(0, 48, 300, 24), kIcon18, false, true);
    EXPECT_EQ(layout.imageSlice, QRectF(0, 48, 25, 24));
    // Composited from its lower-left corner: 48 + ceil((24 + 18) / 2).
    EXPECT_EQ(layout.imagePoint, QPointF(3, 69));
    EXPECT_EQ(layout.imageRect, QRectF(3, 51, 18, 18));
    // 25 points right of the cell's edge, 3 down, 3 shorter.
    EXPECT_EQ(layout.titleFrame, QRectF(25, 51, 275, 21));
    EXPECT_EQ(
        VTImageTextCell::interiorLayout(QRectF(0, 48, 300, 24), kIcon18, true, true).titleFrame,
        QRectF(25, 48, 275, 24));
    // Unflipped, placed from the height difference: ceil((25 - 18) / 2) = 4.
    EXPECT_EQ(
        VTImageTextCell::interiorLayout(QRectF(0, 48, 300, 25), kIcon18, false, false).imagePoint,
        QPointF(3, 52));
    const auto bare =
        VTImageTextCell::interiorLayout(QRectF(5, 10, 120, 24), kNoImage, false, true);
    EXPECT_EQ(bare.titleFrame, QRectF(5, 10, 120, 24));
    EXPECT_TRUE(bare.imageRect.isNull());
    EXPECT_EQ(VTImageTextCell::subtitlePoint(bare.titleFrame, 13), QPointF(7, 20));
    EXPECT_EQ(VTImageTextCell::subtitlePoint(QRectF(25, 48, 275, 40), 13), QPointF(27, 74));
}

TEST(VTImageTextCellTest, ALongSubtitleIsCutByTheAverageCharacterWidth)
{
    const QString text = QStringLiteral("abcdefghij"); // 10 characters, 100 wide
    // Room: 110 - 50 = 60, so 6 characters.
    EXPECT_EQ(VTImageTextCell::shortenedSubtitle(text, 100, 110), QStringLiteral("abcdef..."));
    EXPECT_EQ(VTImageTextCell::shortenedSubtitle(text, 100, 150), text);
    EXPECT_EQ(VTImageTextCell::shortenedSubtitle(text, 100, 149), QStringLiteral("abcdefghi..."));
    // Narrower than 50: no room at all, and no failure.
    EXPECT_EQ(VTImageTextCell::shortenedSubtitle(text, 100, 20), QStringLiteral("..."));
    EXPECT_EQ(VTImageTextCell::shortenedSubtitle(QString(), 0, 20), QString());
    EXPECT_EQ(VTImageTextCell::subtitleColorFor(true, Qt::red), QColor(Qt::white));
    EXPECT_EQ(VTImageTextCell::subtitleColorFor(false, Qt::red), QColor(Qt::red));
    EXPECT_EQ(VTImageTextCell(solid(Qt::blue)).image().size(), QSize(18, 18));
}

class VTImageTextCellDrawingTest : public ::testing::Test
{
protected:
    QStandardItemModel model{3, 1};
    QTableView table;
    VTImageTextCell *cell = new VTImageTextCell(&table);

    void SetUp() override
    {
        model.setItem(0, 0, new QStandardItem(QStringLiteral("First")));
        model.setItem(1, 0, new QStandardItem(QStringLiteral("Second")));
        model.setItem(2, 0, new QStandardItem(QStringLiteral("Third")));
        table.setModel(&model);
        table.setItemDelegate(cell);
        table.verticalHeader()->setDefaultSectionSize(24);
        table.resize(300, 200);
    }

    // The cell's drawing of one row into an image of the row's size.
    QImage drawRow(int row, bool selected = false, int width = 300)
    {
        QImage image(width, 24, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::white);
        QPainter painter(&image);
        QStyleOptionViewItem option;
        option.initFrom(&table);
        option.rect = QRect(0, 0, width, 24);
        option.widget = &table;
        if (selected) {
            option.state |= QStyle::State_Selected;
        }
        cell->paint(&painter, option, model.index(row, 0));
        return image;
    }
};

// Each row sets its image just before it is drawn; a row without one of its own keeps the
// image of the row before. The icon covers (3, 3) to (21, 21).
TEST_F(VTImageTextCellDrawingTest, EachRowSetsItsImageJustBeforeItIsDrawn)
{
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
}

TEST_F(VTImageTextCellDrawingTest, ASubtitleIsDrawnWhiteWhenSelectedAndNeverFailsWhenNarrow)
{
    cell->setImage(solid(Qt::blue));
    cell->setSubtitle(QStringLiteral("A subtitle long enough to be shortened somewhere"));
    cell->setSubtitleColor(Qt::red);
    auto hasColor = [](const QImage &image, auto predicate) {
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 30; x < image.width(); ++x) {
                if (predicate(image.pixelColor(x, y))) {
                    return true;
                }
            }
        }
        return false;
    };
    const auto reddish = [](const QColor &c) {
        return c.red() > 150 && c.green() < 100 && c.blue() < 100;
    };
    EXPECT_TRUE(hasColor(drawRow(0), reddish));
    EXPECT_FALSE(hasColor(drawRow(0, true), reddish));
    // Cells narrower than 50 points draw without failing.
    for (int width : {60, 49, 30, 10, 1}) {
        const QImage narrow = drawRow(0, false, width);
        EXPECT_EQ(narrow.width(), width);
    }
}

TEST_F(VTImageTextCellDrawingTest, TheSizeHintMakesRoomForTheImage)
{
    QStyleOptionViewItem option;
    option.initFrom(&table);
    option.widget = &table;
    const QSize without = cell->sizeHint(option, model.index(0, 0));
    cell->setImage(solid(Qt::red));
    const QSize with = cell->sizeHint(option, model.index(0, 0));
    EXPECT_EQ(with.width() - without.width(), 18);
    EXPECT_EQ(with.height(), without.height());
}

TEST(IconViewBoxTest, TheBoxNeverTakesAMouseEvent)
{
    QWidget grid;
    grid.resize(200, 120);
    auto *box = new IconViewBox(&grid);
    box->setGeometry(10, 10, 104, 88);
    box->setTitle(QStringLiteral("Quill"));
    box->setIcon(solid(Qt::red, 48));
    grid.show();
    for (const QPoint point : {QPoint(12, 12), QPoint(60, 40), QPoint(60, 90), QPoint(110, 95)}) {
        EXPECT_EQ(grid.childAt(point), nullptr) << point.x() << "," << point.y();
    }
}
