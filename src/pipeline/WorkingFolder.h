#pragma once

/** Makes the folder of the worker scripts the program's working folder, which the workers inherit.

    uv reads configuration files in its working folder and above, and the user may start the program inside a project
    that has some. Relative paths in the environment are made absolute first, and an empty TMPDIR is removed.
*/
void enterScriptsFolder();
