// Task URLs as QR codes in the terminal: libqrencode makes the symbol, two
// module rows go into one line of Unicode half blocks.
#include <qrencode.h>

#include <iostream>

#include "Commands.h"

namespace kxapi {

namespace {

const int kQuietZone = 2;

// Light modules are drawn, so the code reads on a dark terminal as printed
// black on white.
void Draw(const QRcode& qr, std::ostream& out) {
    const int size = qr.width + 2 * kQuietZone;
    auto light = [&](int x, int y) {
        x -= kQuietZone;
        y -= kQuietZone;
        if (x < 0 || y < 0 || x >= qr.width || y >= qr.width) return true;
        return (qr.data[y * qr.width + x] & 1) == 0;
    };
    for (int y = 0; y < size; y += 2) {
        out << "    ";
        for (int x = 0; x < size; ++x) {
            const bool top = light(x, y);
            const bool bottom = y + 1 < size && light(x, y + 1);
            out << (top && bottom ? "\u2588" : top ? "\u2580" : bottom ? "\u2584" : " ");
        }
        out << "\n";
    }
}

}  // namespace

void ShowQr(const std::string& what, const std::string& content, bool draw) {
    std::cerr << "kxapi: " << what << " - scan this QR code, or open:\n    " << content << "\n";
    if (!draw) return;
    QRcode* qr = QRcode_encodeString8bit(content.c_str(), 0, QR_ECLEVEL_L);
    if (qr == nullptr) {
        std::cerr << "kxapi: no QR code for this text\n";
        return;
    }
    Draw(*qr, std::cerr);
    QRcode_free(qr);
}

}  // namespace kxapi
