#pragma once

// Opening files by name, whole files, searching, managing files, and watching what is opened.

#include <engine/filesystem/access/manage.h>
#include <engine/filesystem/access/monitor.h>
#include <engine/filesystem/access/open.h>
#include <engine/filesystem/access/search.h>
#include <engine/filesystem/access/whole_file.h>
