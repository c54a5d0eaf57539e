// A minimal host: opens a store in a temporary directory through the installed
// package, appends one page, stores a clip made of it and reads the clip back.
#include <cstdio>
#include <vector>
#include "LxAudioCore.h"

int main() {
    LxFile dir = LxFileUtil::CreateUniqueTempDir("LxConsumer");
    if (dir.GetPath().IsEmpty()) return 1;
    int result = 0;
    {
        LxAudioFile store(dir);
        std::vector<short> pcm(4410, 1000);
        int page = -1;
        store.AppendPage(pcm.data(), static_cast<int>(pcm.size() * 2), 1, 44100, 16, page);
        LxAudioClipBase clip(store);
        clip.AppendPageRange(LxPageRange(&store, LxAudioVolumeEffect(), page, 0, page, 8820));
        int id = clip.WriteToAudioFile();
        LxAudioClipBase again(store, id);
        std::printf("page %d clip %d frames %d\n", page, id, again.WorthInFrames());
        result = (page == 180 && id == 1 && again.WorthInFrames() == 4410) ? 0 : 2;
    }
    LxFileUtil::DeleteDirectory(dir);
    return result;
}
