// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/DB_KxUserProject.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kx::tool
{

/// A description in the updater's own classes, and the owner of all objects in it.
class ProjectModel
{
public:
    /// Makes an object that lives as long as the model.
    template <class T>
    T& Make()
    {
        auto object = std::make_unique<T>();
        T& made = *object;
        m_objects.push_back(std::move(object));
        return made;
    }

    DB_KxUserProject root;

private:
    std::vector<std::unique_ptr<IPicoJ>> m_objects;
};

struct Manifest;
struct ManifestStep;

/// One item of a copy step, as the description tells it.
struct CopyItem {
    std::string source;
    std::string target;
    std::string mode;
};

/// Makes the description that a manifest asks for.
/// @param steps  those that the description gets
/// @param items  for every one of them the items that it copies
/// @throws Error for what cannot be taken as it is
[[nodiscard]] std::unique_ptr<ProjectModel>
MakeModel(const Manifest& manifest, const std::vector<ManifestStep>& steps,
          const std::vector<std::vector<CopyItem>>& items);

} // namespace kx::tool
