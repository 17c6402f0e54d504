// Many pictures by one command line: --out-dir, --name, -j, --resume.
#ifndef TARN_TOOLS_BATCH_H
#define TARN_TOOLS_BATCH_H

#include "commands.h"
#include "options.h"

namespace tarn::tool {

// IN, -o and the options of pictures for a command that makes one picture of one; several go into a folder.
void add_pictures(CLI::App& app, Files& files);

// --out-dir and what belongs to it; add_pictures has them.
void add_batch(CLI::App& app, Files& files);

// one for a single input and its -o, or once for every picture that --out-dir asks for, with inputs and output of files
// set to that. files must live as long as run does.
Run each_picture(Files& files, std::function<void()> one);

}  // namespace tarn::tool
#endif
