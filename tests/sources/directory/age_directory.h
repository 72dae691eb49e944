#pragma once

#include <functional>
#include <string>

/// Lets a directory look as if its list of names had not changed for an hour.
void age_directory(const std::string& path);

/// Makes a change and puts the directory's time stamp back.
void change_unseen(const std::string& path, const std::function<void()>& change);
