#include "Projects/Common/VoIPFileEngine/OpenMemoryFile.h"

#include "Projects/Common/VoIPFileEngine/ContentName.h"
#include "Projects/Common/VoIPFileEngine/PCMBuffer.h"
#include "Projects/Common/VoIPFileEngine/WAVFileView.h"

namespace Orv {

std::unique_ptr<IMemoryFile> OpenMemoryFile(const std::string& path, bool view, bool lock) {
    constexpr bool prefetch = true;
    if (!view) return std::make_unique<PCMBuffer>(path, lock);
    if (path.size() > 4 && EndsInWav(path)) return std::make_unique<WAVFileView>(path, prefetch, lock);
    return std::make_unique<FileView>(path, prefetch, lock);
}

}  // namespace Orv
