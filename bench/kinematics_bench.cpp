// Cost of evaluating global transforms through the parameter-backed hierarchy.
#include <benchmark/benchmark.h>

#include "host/host.h"
#include "model/model.h"
#include "model/scene_graph.h"

namespace {

using namespace Zyra;

// The leaf of a chain of 30 nulls below the scene root, each with its own non-trivial local.
void BM_GlobalTransformChain30(benchmark::State& state) {
  rt::Host::Get().NewScene();
  std::shared_ptr<rt::X3D> node = rt::Host::Get().scene().root;
  for (int i = 0; i < 30; ++i) {
    node = rt::CreateX3D(node, siX3DObjectID, L"null", L"joint");
    const double f = i;
    const double values[9] = {f, 1, -0.5 * f, 3 * f, 10, -2 * f, 1.01, 0.99, 1};
    const wchar_t* names[9] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                               L"rotz", L"sclx", L"scly", L"sclz"};
    for (int c = 0; c < 9; ++c) node->local->FindParam(names[c])->Put(CValue(values[c]), 1);
  }
  for (auto _ : state) {
    MATH::CTransformation global = node->GlobalTransform(1.0);
    benchmark::DoNotOptimize(global);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GlobalTransformChain30);

}  // namespace
