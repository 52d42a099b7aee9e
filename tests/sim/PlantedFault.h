// The switch of the faults that are planted into copies of the service's sources, see plant.py. Never in the service.
#pragma once

namespace OrvSim {

inline int plantedFault = 0;  // its number; 0 for none
inline unsigned plantedCount = 0;

inline bool Planted(int number) {
    return plantedFault == number;
}
// Each `every`-th time it is asked.
inline bool PlantedOneIn(int number, unsigned every) {
    return Planted(number) && ++plantedCount % every == 0;
}

}  // namespace OrvSim
