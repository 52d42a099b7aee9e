#include "ServiceProcess/SettingsLineReader.h"

#include <algorithm>

namespace Orv {

bool SettingsLineReader::Next(std::string& line) {
    line.clear();
    bool any = false;
    while (used_ < filled_ || Refill()) {
        any = true;
        const char* begin = piece_.data() + used_;
        const char* end = piece_.data() + filled_;
        const char* lineFeed = std::find(begin, end, '\n');
        line.append(begin, lineFeed);
        used_ += static_cast<u64>(lineFeed - begin);
        if (lineFeed != end) {
            ++used_;
            return true;
        }
    }
    return any;
}

bool SettingsLineReader::Refill() {
    used_ = 0;
    filled_ = file_.ReadAt(position_, piece_.data(), piece_.size());
    position_ += filled_;
    return filled_ > 0;
}

}  // namespace Orv
