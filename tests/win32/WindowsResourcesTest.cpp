// The kernel's Windows-only resources, read back from KOVA32.DLL as the system
// reads them: the error dialog's template agrees with kova/errdialog.h, the
// bit dialog's with kova/bitdialog.h, and the
// version resource carries the project's version.
#include "kova/bitdialog.h"
#include "kova/errdialog.h"
#include "kova/kernel.h"
#include "platform/win32/ResourceIds.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>
#include <windows.h>

namespace {

// Reads a dialog template (DLGTEMPLATE and its items) field by field.
class TemplateReader {
  public:
    explicit TemplateReader(const BYTE* bytes) : start_(bytes), at_(bytes) {}

    template <typename T> T take() {
        T value;
        std::memcpy(&value, at_, sizeof value);
        at_ += sizeof value;
        return value;
    }

    // A name or an ordinal (0xFFFF then a number), given here as text.
    std::string takeNameOrOrdinal() {
        const auto first = take<WORD>();
        if (first == 0xFFFF) return "#" + std::to_string(take<WORD>());
        std::string text;
        for (WORD c = first; c != 0; c = take<WORD>())
            text += static_cast<char>(c);
        return text;
    }

    void alignToDword() {
        while ((at_ - start_) % 4)
            ++at_;
    }

  private:
    const BYTE* start_;
    const BYTE* at_;
};

struct Control {
    std::string className; // "#128" for a button, "#129" an edit field, "#130" a label
    std::string title;
    DWORD style;
};

// Reads `count` controls: those with an id by id, the titles of those
// without (-1) into `labels`.
std::map<int, Control> readControls(TemplateReader& reader, WORD count,
                                    std::vector<std::string>* labels) {
    std::map<int, Control> controls;
    for (WORD i = 0; i < count; ++i) {
        reader.alignToDword();
        Control control{};
        control.style = reader.take<DWORD>();
        reader.take<DWORD>(); // extended style
        for (int k = 0; k < 4; ++k)
            reader.take<short>(); // position and size
        const int id = static_cast<short>(reader.take<WORD>());
        control.className = reader.takeNameOrOrdinal();
        control.title = reader.takeNameOrOrdinal();
        const auto extraBytes = reader.take<WORD>();
        for (WORD k = 0; k < extraBytes; ++k)
            reader.take<BYTE>();
        if (id == -1)
            labels->push_back(control.title);
        else
            controls[id] = control;
    }
    return controls;
}

constexpr std::string_view buttonClass = "#128";
constexpr std::string_view editClass = "#129";

TEST(WindowsResources, ErrorDialogTemplateMatchesTheDialogsHeader) {
    const auto kernel = static_cast<HMODULE>(kvGetKOVAInstance());
    ASSERT_NE(kernel, nullptr);
    HRSRC info = FindResourceA(kernel, MAKEINTRESOURCEA(KV_ERRDLG_TEMPLATE_ID), RT_DIALOG);
    ASSERT_NE(info, nullptr);
    TemplateReader reader(static_cast<const BYTE*>(LockResource(LoadResource(kernel, info))));

    const auto style = reader.take<DWORD>();
    reader.take<DWORD>(); // extended style
    const auto controlCount = reader.take<WORD>();
    reader.take<short>(); // x
    reader.take<short>(); // y
    EXPECT_EQ(reader.take<short>(), KV_ERRDLG_WIDTH);
    EXPECT_EQ(reader.take<short>(), KV_ERRDLG_HEIGHT);
    EXPECT_EQ(reader.takeNameOrOrdinal(), ""); // no menu
    EXPECT_EQ(reader.takeNameOrOrdinal(), ""); // the system's dialog class
    EXPECT_EQ(reader.takeNameOrOrdinal(), KV_ERRDLG_CAPTION);
    ASSERT_TRUE(style & DS_SETFONT);
    EXPECT_EQ(reader.take<WORD>(), KV_ERRDLG_FONT_POINTS);
    EXPECT_EQ(reader.takeNameOrOrdinal(), KV_ERRDLG_FONT);

    std::vector<std::string> labels;
    std::map<int, Control> controls = readControls(reader, controlCount, &labels);

    const std::map<int, std::string> buttons = {{KV_ERRDLG_OK, "OK"},
                                                {KV_ERRDLG_HELP, "&Help"},
                                                {KV_ERRDLG_NEXT, "&Next"},
                                                {KV_ERRDLG_PREVIOUS, "&Previous"}};
    for (const auto& [id, title] : buttons) {
        ASSERT_TRUE(controls.contains(id)) << id;
        EXPECT_EQ(controls[id].className, buttonClass) << id;
        EXPECT_EQ(controls[id].title, title) << id;
    }
    EXPECT_EQ(controls[KV_ERRDLG_OK].style & 0xF, static_cast<DWORD>(BS_DEFPUSHBUTTON));
    for (int id : {KV_ERRDLG_CODE, KV_ERRDLG_SCODE, KV_ERRDLG_SOURCE, KV_ERRDLG_MESSAGE}) {
        ASSERT_TRUE(controls.contains(id)) << id;
        EXPECT_EQ(controls[id].className, editClass) << id;
        EXPECT_TRUE(controls[id].style & ES_READONLY) << id;
    }
    EXPECT_TRUE(controls[KV_ERRDLG_MESSAGE].style & ES_MULTILINE);
    EXPECT_EQ(controls.size(), buttons.size() + 4);
    EXPECT_EQ(labels, (std::vector<std::string>{
                          "Native Error Number:", "Scode:", "Source:", "Error Description:"}));
}

TEST(WindowsResources, KernelCarriesTheProjectsVersion) {
    const auto kernel = static_cast<HMODULE>(kvGetKOVAInstance());
    HRSRC info = FindResourceA(kernel, MAKEINTRESOURCEA(VS_VERSION_INFO), RT_VERSION);
    ASSERT_NE(info, nullptr);
    // VS_VERSIONINFO: three words, the key L"VS_VERSION_INFO", padding, then
    // the fixed file information.
    const auto* bytes = static_cast<const BYTE*>(LockResource(LoadResource(kernel, info)));
    const size_t fixedAt = (6 + sizeof L"VS_VERSION_INFO" + 3) & ~size_t{3};
    VS_FIXEDFILEINFO fixed;
    std::memcpy(&fixed, bytes + fixedAt, sizeof fixed);
    EXPECT_EQ(fixed.dwSignature, 0xFEEF04BDu);
    EXPECT_EQ(HIWORD(fixed.dwFileVersionMS), KOVA_VERSION_MAJOR);
    EXPECT_EQ(LOWORD(fixed.dwFileVersionMS), KOVA_VERSION_MINOR);
    EXPECT_EQ(HIWORD(fixed.dwFileVersionLS), KOVA_VERSION_PATCH);
    EXPECT_EQ(fixed.dwFileType, static_cast<DWORD>(VFT_DLL));
}

} // namespace

namespace {

TEST(WindowsResources, BitDialogTemplateMatchesTheDialogsHeader) {
    const auto kernel = static_cast<HMODULE>(kvGetKOVAInstance());
    HRSRC info = FindResourceA(kernel, MAKEINTRESOURCEA(KV_BITDLG_TEMPLATE_ID), RT_DIALOG);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(KV_BITDLG_TEMPLATE_ID, 103);
    TemplateReader reader(static_cast<const BYTE*>(LockResource(LoadResource(kernel, info))));
    reader.take<DWORD>(); // style
    reader.take<DWORD>(); // extended style
    const auto controlCount = reader.take<WORD>();
    for (int k = 0; k < 4; ++k)
        reader.take<short>();   // position and size
    reader.takeNameOrOrdinal(); // menu
    reader.takeNameOrOrdinal(); // class
    reader.takeNameOrOrdinal(); // caption
    reader.take<WORD>();        // font size
    reader.takeNameOrOrdinal(); // font
    std::vector<std::string> labels;
    std::map<int, Control> controls = readControls(reader, controlCount, &labels);
    EXPECT_EQ(controls.size(), size_t{KV_BITDLG_BOXES} + 2);
    for (int id = KV_BITDLG_FIRST_BOX; id <= KV_BITDLG_LAST_BOX; ++id) {
        ASSERT_TRUE(controls.contains(id)) << id;
        EXPECT_EQ(controls[id].className, buttonClass) << id;
        EXPECT_EQ(controls[id].style & 0xF, static_cast<DWORD>(BS_AUTOCHECKBOX)) << id;
    }
    EXPECT_EQ(controls[KV_BITDLG_OK].title, "OK");
    EXPECT_EQ(controls[KV_BITDLG_CANCEL].title, "Cancel");
}

} // namespace
