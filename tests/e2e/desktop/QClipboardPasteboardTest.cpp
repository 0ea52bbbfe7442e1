// The clipboard fallback across real clients: xclip as the previous owner and as a reader, the
// GTK insertion target as the application that pastes.
#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>

#include "X11TestWindow.h"
#include "platform/linux/QClipboardPasteboard.h"
#include "platform/linux/XTestKeySynthesizer.h"

namespace kelvo::platform {
namespace {

using test::runProgram;
using test::waitUntil;

// An xclip that owns the clipboard with text until another client takes it over.
class XclipOwner {
  public:
    explicit XclipOwner(const QByteArray& text) {
        process_.start("xclip", {"-quiet", "-selection", "clipboard", "-i"});
        process_.waitForStarted();
        process_.write(text);
        process_.closeWriteChannel();
    }
    ~XclipOwner() {
        process_.kill();
        process_.waitForFinished();
    }
    bool isRunning() const { return process_.state() != QProcess::NotRunning; }

  private:
    QProcess process_;
};

std::string readClipboardElsewhere() {
    int status = 0;
    auto text = runProgram({"xclip", "-o", "-selection", "clipboard"}, &status);
    return status == 0 ? text : "(xclip failed)";
}

QByteArray fileText(const std::string& path) {
    QFile file(QString::fromStdString(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

TEST(QClipboardPasteboardTest, TheTargetFetchesThePasteAndThePreviousTextComesBack) {
    QClipboardPasteboard pasteboard;
    XclipOwner previousOwner("前のクリップボード");
    ASSERT_TRUE(waitUntil([&] { return pasteboard.readString() == "前のクリップボード"; }));
    auto previous = pasteboard.readString();

    int status = 0;
    std::string state = runProgram({KELVO_HEADLESS_SESSION, "target", "gtk-entry"}, &status);
    ASSERT_EQ(status, 0);
    state = state.substr(0, state.find('\n'));

    int fetches = 0;
    pasteboard.setFetchedHandler([&] { ++fetches; });
    ASSERT_TRUE(pasteboard.writeString("貼り付けテスト"));
    EXPECT_TRUE(pasteboard.holdsLastWrite());
    // Reading our own data is no fetch.
    EXPECT_EQ(pasteboard.readString(), "貼り付けテスト");
    EXPECT_FALSE(pasteboard.lastWriteFetched());
    // The previous owner lets go once it lost the clipboard.
    EXPECT_TRUE(waitUntil([&] { return !previousOwner.isRunning(); }));

    XTestKeySynthesizer synthesizer;
    ASSERT_TRUE(synthesizer.sendPaste());
    EXPECT_TRUE(waitUntil([&] { return fetches > 0; }));
    EXPECT_TRUE(pasteboard.lastWriteFetched());
    EXPECT_TRUE(waitUntil([&] { return fileText(state).contains("貼り付けテスト"); }))
        << fileText(state).toStdString();

    pasteboard.clear();
    EXPECT_FALSE(pasteboard.holdsLastWrite());
    ASSERT_TRUE(pasteboard.writeString(*previous));
    EXPECT_EQ(readClipboardElsewhere(), "前のクリップボード");
    EXPECT_TRUE(pasteboard.lastWriteFetched());

    // Another application copies something: our text is no longer the clipboard's.
    XclipOwner nextOwner("ほかのアプリ");
    EXPECT_TRUE(waitUntil([&] { return !pasteboard.holdsLastWrite(); }));
    EXPECT_EQ(pasteboard.readString(), "ほかのアプリ");
}

}  // namespace
}  // namespace kelvo::platform
