#include "fakes/FakeNetwork.h"

namespace fakes {

namespace {
std::optional<std::wstring> textOf(LPCWSTR text)
{
    if (!text)
        return std::nullopt;
    return std::wstring(text);
}
}  // namespace

DWORD FakeNetwork::WNetAddConnection2W(LPNETRESOURCEW resource, LPCWSTR password, LPCWSTR user, DWORD flags)
{
    calls.push_back(L"add");
    Add add;
    if (resource) {
        add.scope = resource->dwScope;
        add.type = resource->dwType;
        add.displayType = resource->dwDisplayType;
        add.usage = resource->dwUsage;
        add.localName = textOf(resource->lpLocalName);
        add.remoteName = textOf(resource->lpRemoteName);
        add.comment = textOf(resource->lpComment);
        add.provider = textOf(resource->lpProvider);
    }
    add.password = textOf(password);
    add.user = textOf(user);
    add.flags = flags;
    adds.push_back(add);
    if (!resource)
        return ERROR_INVALID_PARAMETER;
    return addResult;
}

DWORD FakeNetwork::WNetCancelConnection2W(LPCWSTR name, DWORD flags, BOOL force)
{
    calls.push_back(L"cancel");
    cancels.push_back({textOf(name), flags, force});
    return cancelResult;
}

}  // namespace fakes
