#include "linux/item/StatusNotifierItem.h"

#include <optional>
#include <utility>

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QUuid>
#include <QtCore/QtEndian>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusObjectPath>
#include <QtGui/QImage>

#include "linux/item/DBusMenu.h"
#include "linux/item/NextTurn.h"
#include "linux/item/StatusNotifierStructures.h"
#include "linux/item/TrayWatcher.h"

namespace marigold {

namespace {

constexpr QLatin1String itemPath("/StatusNotifierItem");

DBusPixmap pixmapOf(const QImage& image, QImage::Format format) {
  const QImage argb = image.convertToFormat(format);
  DBusPixmap result{.width = argb.width(), .height = argb.height()};
  QByteArray row(4 * qsizetype{argb.width()}, '\0');
  for (int y = 0; y < argb.height(); ++y) {
    qToBigEndian<quint32>(argb.constScanLine(y), argb.width(), row.data());
    result.pixels += row;
  }
  return result;
}

// Hosts read a tooltip as markup, each escapes it differently, and a single "&" or "<" blanks the
// whole of it in some: what would be markup is replaced by what reads alike.
QString withoutMarkup(QString text) {
  return text.replace(u'&', u'+').replace(u'<', u'\u2039').replace(u'>', u'\u203A');
}

}  // namespace

// The object on the bus, whose public slots, signals and properties are the interface under the
// protocol's names.
class StatusNotifierItem::Exported final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
  Q_PROPERTY(QString Category MEMBER category_ CONSTANT)
  Q_PROPERTY(QString Id MEMBER id_ CONSTANT)
  Q_PROPERTY(QString Title MEMBER title_ CONSTANT)
  Q_PROPERTY(QString Status MEMBER status_ CONSTANT)
  Q_PROPERTY(int WindowId MEMBER windowId_ CONSTANT)
  Q_PROPERTY(QString IconName MEMBER none_ CONSTANT)
  Q_PROPERTY(QList<marigold::DBusPixmap> IconPixmap READ iconPixmap)
  Q_PROPERTY(QString OverlayIconName MEMBER none_ CONSTANT)
  Q_PROPERTY(QList<marigold::DBusPixmap> OverlayIconPixmap MEMBER noPixmaps_ CONSTANT)
  Q_PROPERTY(QString AttentionIconName MEMBER none_ CONSTANT)
  Q_PROPERTY(QList<marigold::DBusPixmap> AttentionIconPixmap MEMBER noPixmaps_ CONSTANT)
  Q_PROPERTY(QString AttentionMovieName MEMBER none_ CONSTANT)
  Q_PROPERTY(QString IconThemePath MEMBER none_ CONSTANT)
  Q_PROPERTY(marigold::DBusToolTip ToolTip READ toolTip)
  Q_PROPERTY(bool ItemIsMenu MEMBER itemIsMenu_ CONSTANT)
  Q_PROPERTY(QDBusObjectPath Menu MEMBER menuPath_ CONSTANT)
  Q_PROPERTY(QString XAyatanaLabel READ label)
  Q_PROPERTY(QString XAyatanaLabelGuide MEMBER none_ CONSTANT)
  Q_PROPERTY(QString IconAccessibleDesc READ description)

 public:
  Exported(StatusNotifierItem& item, bool developmentBuild)
      : item_(item),
        id_(developmentBuild ? QStringLiteral("marigold-dev") : QStringLiteral("marigold")) {
    qDBusRegisterMetaType<DBusPixmap>();
    qDBusRegisterMetaType<QList<DBusPixmap>>();
    qDBusRegisterMetaType<DBusToolTip>();
  }
  Exported(const Exported&) = delete;
  Exported& operator=(const Exported&) = delete;
  ~Exported() override { leaveBus(); }

  void connectTo(const QString& address) {
    leaveBus();
    // A connection is private by a name of its own.
    connection_ = QDBusConnection::connectToBus(address, QUuid::createUuid().toString());
    if (connection_.isConnected()) {
      menu_.emplace(connection_, [this](bool opening) {
        return item_.onMenuRead ? item_.onMenuRead(opening) : std::vector<MenuItem>();
      });
      connection_.registerObject(itemPath, this, QDBusConnection::ExportAllContents);
      watcher_.emplace(connection_, [this] { callLater(item_.onAvailabilityChange); });
    }
    callLater(item_.onAvailabilityChange);
  }

  // What hosts are shown besides what never changes.
  struct Content {
    QList<DBusPixmap> pixmaps;
    DBusToolTip toolTip;
    QString label;
    QString description;

    bool operator==(const Content&) const = default;
  };

  [[nodiscard]] QList<DBusPixmap> iconPixmap() const { return content_.pixmaps; }
  [[nodiscard]] DBusToolTip toolTip() const { return content_.toolTip; }
  [[nodiscard]] QString label() const { return content_.label; }
  [[nodiscard]] QString description() const { return content_.description; }

  [[nodiscard]] const TrayWatcher* watcher() const { return watcher_ ? &*watcher_ : nullptr; }
  [[nodiscard]] std::string takeToken() { return std::exchange(token_, {}); }

  // Sets one of the contents. Hosts are told later, of whatever then differs from what they know.
  template <class Value>
  void set(Value Content::* member, Value value) {
    content_.*member = std::move(value);
    next_.run([this] { tellChanges(); });
  }

  Q_SLOT void Activate(int x, int y) { callLater(item_.onActivate, x, y); }
  Q_SLOT void SecondaryActivate(int /*x*/, int /*y*/) {}
  Q_SLOT void ContextMenu(int x, int y) { callLater(item_.onContextMenu, x, y); }
  Q_SLOT void Scroll(int /*delta*/, const QString& /*orientation*/) {}
  // Plasma sends an empty one on X11.
  Q_SLOT void ProvideXdgActivationToken(const QString& token) {
    if (!token.isEmpty()) {
      token_ = token.toStdString();
    }
  }

 Q_SIGNALS:
  void NewIcon();
  void NewTitle();
  void NewToolTip();
  void NewMenu();
  void NewAttentionIcon();
  void NewOverlayIcon();
  void NewStatus(const QString& /*status*/);
  void XAyatanaNewLabel(const QString& /*label*/, const QString& /*guide*/);

 private:
  void leaveBus() {
    watcher_.reset();
    menu_.reset();
    connection_.unregisterObject(itemPath);
    QDBusConnection::disconnectFromBus(connection_.name());
  }
  // Callbacks may destroy the item, which must not happen while a call is being answered.
  template <class... Arguments>
  void callLater(const std::function<void(Arguments...)>& callback, Arguments... arguments) {
    if (callback) {
      next_.run([callback, arguments...] { callback(arguments...); });
    }
  }

  // The accessible description has no signal of its own and is read again with the icon, or with
  // the tooltip: while only ages move on, the icon is not sent again.
  void tellChanges() {
    const Content told = std::exchange(told_, content_);
    if (told.pixmaps != content_.pixmaps ||
        (told.description != content_.description && told.toolTip == content_.toolTip)) {
      Q_EMIT NewIcon();
    }
    if (told.toolTip != content_.toolTip) {
      Q_EMIT NewToolTip();
    }
    if (told.label != content_.label) {
      Q_EMIT XAyatanaNewLabel(content_.label, none_);
    }
    if (told != content_ && menu_) {
      menu_->refresh();
    }
  }

  StatusNotifierItem& item_;

  const QString category_ = QStringLiteral("ApplicationStatus");
  const QString id_;
  const QString title_ = QStringLiteral("Marigold");
  const QString status_ = QStringLiteral("Active");
  const int windowId_ = 0;
  const bool itemIsMenu_ = false;  // XFCE takes a missing one for true
  const QDBusObjectPath menuPath_{QLatin1String(DBusMenu::path)};
  const QString none_ = QStringLiteral("");
  const QList<DBusPixmap> noPixmaps_;

  QDBusConnection connection_{QString()};
  std::optional<DBusMenu> menu_;
  std::optional<TrayWatcher> watcher_;
  Content content_;
  Content told_;
  NextTurn next_;
  std::string token_;
};

StatusNotifierItem::StatusNotifierItem(bool developmentBuild)
    : exported_(std::make_unique<Exported>(*this, developmentBuild)) {}

StatusNotifierItem::~StatusNotifierItem() = default;

void StatusNotifierItem::connectTo(const std::string& busAddress) {
  exported_->connectTo(QString::fromStdString(busAddress));
}

bool StatusNotifierItem::available() const {
  return exported_->watcher() != nullptr && exported_->watcher()->available();
}

bool StatusNotifierItem::isAsking() const {
  return exported_->watcher() != nullptr && exported_->watcher()->isAsking();
}

bool StatusNotifierItem::hostIsWaybar() const {
  return exported_->watcher() != nullptr && exported_->watcher()->program() == "waybar";
}

void StatusNotifierItem::setPixmaps(const std::vector<QImage>& images) {
  // swaybar shows what is not premultiplied with coloured specks at soft edges.
  const TrayWatcher* const watcher = exported_->watcher();
  const auto format = watcher != nullptr && watcher->program() == "swaybar"
                          ? QImage::Format_ARGB32_Premultiplied
                          : QImage::Format_ARGB32;
  QList<DBusPixmap> pixmaps;
  for (const QImage& image : images) {
    pixmaps.append(pixmapOf(image, format));
  }
  exported_->set(&Exported::Content::pixmaps, std::move(pixmaps));
}

void StatusNotifierItem::setToolTip(const std::string& title, const std::string& lines) {
  const auto plain = [](const std::string& text) {
    return withoutMarkup(QString::fromStdString(text));
  };
  // A single line would only be said twice.
  exported_->set(&Exported::Content::toolTip,
                 DBusToolTip{.title = plain(title), .text = plain(lines == title ? "" : lines)});
}

void StatusNotifierItem::setLabel(const std::string& label) {
  exported_->set(&Exported::Content::label, QString::fromStdString(label));
}

void StatusNotifierItem::setAccessibleDescription(const std::string& description) {
  exported_->set(&Exported::Content::description, QString::fromStdString(description));
}

std::string StatusNotifierItem::takeActivationToken() {
  return exported_->takeToken();
}

}  // namespace marigold

#include "StatusNotifierItem.moc"
